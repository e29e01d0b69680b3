// Passwords.
#include <ZKQ_general/system.h>
#include <errno.h>
#include <termios.h>
#include <unistd.h>

#include "internal/error.h"

namespace {

int SetTerminal(int fd, const termios& settings)
{
    while (tcsetattr(fd, TCSANOW, &settings) != 0)
        if (errno != EINTR)
            return errno;
    return 0;
}

/// Has a terminal give every byte as it is typed, and show none; 0 or an errno value.
int HideInput(int fd, termios* saved)
{
    if (tcgetattr(fd, saved) != 0)
        return errno;
    termios hidden = *saved;
    hidden.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    hidden.c_cc[VMIN] = 1; // a read waits for a byte
    hidden.c_cc[VTIME] = 0;
    return SetTerminal(fd, hidden);
}

/// A byte, or EOF; a signal is not the end.
int ReadByte(FILE* infp)
{
    for (;;) {
        errno = 0;
        const int byte = getc(infp);
        if (byte != EOF || ferror(infp) == 0 || errno != EINTR)
            return byte;
        clearerr(infp);
    }
}

void Show(FILE* outfp, const char* text)
{
    fputs(text, outfp);
    fflush(outfp);
}

void ReadLine(FILE* infp, FILE* outfp, char* Buffer, int Size, bool display)
{
    char* next = Buffer;
    while (next - Buffer < Size) {
        const int byte = ReadByte(infp);
        if (byte == EOF || byte == '\n' || byte == '\r')
            break;
        *next++ = static_cast<char>(byte);
        if (display)
            Show(outfp, "*");
    }
    *next = '\0';
}

} // namespace

BOOL ZKQGeneral_ReadPasswordString(const char* Prompt, FILE* infp, FILE* outfp, char* Buffer, int Size, int bDisplay)
{
    if (Buffer == nullptr || Size < 0)
        return Fail(EINVAL);
    if (infp == nullptr)
        infp = stdin;
    if (outfp == nullptr)
        outfp = stdout;
    if (Prompt != nullptr)
        Show(outfp, Prompt);
    termios saved;
    if (const int error = HideInput(fileno(infp), &saved))
        return Fail(error);
    ReadLine(infp, outfp, Buffer, Size, bDisplay != 0);
    Show(outfp, "\n");
    SetTerminal(STDIN_FILENO, saved); // the password has been read, whatever becomes of this
    return TRUE;
}

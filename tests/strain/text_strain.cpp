// Texts, memory objects, packets, Base64, charsets, error texts.
#include <ZKQ_general/base64.h>
#include <ZKQ_general/error.h>
#include <ZKQ_general/file.h>
#include <ZKQ_general/iconv.h>
#include <ZKQ_general/msgpacket.h>
#include <ZKQ_general/string.h>
#include <string.h>

#include "strain.h"

namespace strain {
namespace {

constexpr size_t kErrorTextSize = 256;

void Split(Worker& worker)
{
    std::vector<std::string> words(worker.Below(20));
    std::string line;
    for (std::string& word : words) {
        word = worker.Word(1 + worker.Below(10));
        line += (worker.Maybe() ? "," : "; ") + word;
    }
    int count = -1;
    char** const tokens = ZKQGeneral_ParseLineInfo(line.c_str(), ",; ", &count);
    worker.Must(tokens != nullptr, "ParseLineInfo");
    const Holder release([&] { ZKQGeneral_FreeParseLineInfoBuffer(tokens, count); });
    worker.Right(count == static_cast<int>(words.size()), "the number of tokens");
    for (size_t i = 0; i < words.size(); ++i) {
        worker.RightUnlessFault(tokens[i] != nullptr, "a token without memory");
        worker.Right(words[i] == tokens[i], "a token");
    }
}

void Memory(Worker& worker)
{
    void* const object = ZKQGeneral_MEM_malloc(static_cast<int>(worker.Below(100)));
    worker.Must(object != nullptr, "MEM_malloc");
    const Holder release([&] { ZKQGeneral_MEM_free(object); });
    std::string all;
    size_t next = 0;
    for (int i = 0; i < 20; ++i) {
        const std::string piece = worker.Bytes(1 + worker.Below(2000));
        const Exact bytes(piece);
        worker.Must(ZKQGeneral_MEM_Write(object, bytes.Data(), bytes.Size()) == bytes.Size(), "MEM_Write");
        all += piece;
        const Exact room(worker.Below(1000));
        const int read = ZKQGeneral_MEM_Read(object, room.Data(), room.Size());
        const std::string expected = all.substr(next, static_cast<size_t>(room.Size()));
        worker.Right(read == static_cast<int>(expected.size()), "MEM_Read's number");
        worker.Right(room.String(expected.size()) == expected, "MEM_Read's bytes");
        next += expected.size();
    }
    unsigned char* rest = nullptr;
    int size = -1;
    ZKQGeneral_MEM_Detach(object, &rest, &size);
    const Owned<unsigned char> owned(rest);
    worker.Right(size == static_cast<int>(all.size()) && memcmp(rest, all.data(), all.size()) == 0,
                 "MEM_Detach's bytes");
}

void Packet(Worker& worker)
{
    void* packet = nullptr;
    worker.Must(ZKQGeneral_CreateMsgPacket(static_cast<int>(worker.Below(200)), &packet), "CreateMsgPacket");
    const Holder release([&] { ZKQGeneral_DestroyMsgPacket(packet); });
    std::vector<std::string> values(1 + worker.Below(12));
    for (size_t i = 0; i < values.size(); ++i) {
        values[i] = worker.Bytes(worker.Below(300));
        const Exact bytes(values[i]);
        worker.Must(ZKQGeneral_MsgPacket_OID_AddBuffer(packet, static_cast<int>(i) + 1, bytes.Data(), bytes.Size()),
                    "OID_AddBuffer");
    }
    worker.Must(ZKQGeneral_MsgPacket_OID_AddInt(packet, 1000, -7), "OID_AddInt");
    unsigned char* bytes = nullptr;
    int size = 0;
    worker.Must(ZKQGeneral_MsgPacket_GetBuffer(packet, &bytes, &size), "MsgPacket_GetBuffer");
    const Exact sent(std::string_view(reinterpret_cast<char*>(bytes), static_cast<size_t>(size)));
    void* received = nullptr;
    worker.Must(ZKQGeneral_InitMsgPacket(sent.Data(), sent.Size(), 0, &received), "InitMsgPacket");
    const Holder releaseReceived([&] { ZKQGeneral_DestroyMsgPacket(received); });
    int count = 0;
    worker.Must(ZKQGeneral_MsgPacket_OID_EnumOID(received, nullptr, &count), "OID_EnumOID");
    worker.Right(count == static_cast<int>(values.size()) + 1, "the number of OIDs");
    for (size_t i = 0; i < values.size(); ++i) {
        void* value = nullptr;
        worker.Must(ZKQGeneral_MsgPacket_OID_GetBufferPtr(received, static_cast<int>(i) + 1, &value, &size),
                    "OID_GetBufferPtr");
        worker.Right(values[i] == std::string_view(static_cast<char*>(value), static_cast<size_t>(size)), "a value");
    }
    int number = 0;
    worker.Must(ZKQGeneral_MsgPacket_OID_GetInt(received, 1000, &number), "OID_GetInt");
    worker.Right(number == -7, "a number");
}

void Base64(Worker& worker)
{
    const std::string content = worker.Bytes(worker.Below(3000));
    const Exact bytes(content);
    char* text = nullptr;
    worker.Must(ZKQGeneral_ConvertToBase64Ex(bytes.Data(), bytes.Size(), &text, static_cast<int>(worker.Below(20)) * 4),
                "ConvertToBase64Ex");
    const Owned<char> owned(text);
    unsigned char* back = nullptr;
    int length = -1;
    const BOOL decoded = ZKQGeneral_ConvertFromBase64Ex(text, &back, &length);
    const Owned<unsigned char> ownedBack(back);
    worker.Must(decoded, "ConvertFromBase64Ex");
    worker.Right(length == bytes.Size() && (length == 0 || memcmp(back, content.data(), content.size()) == 0),
                 "the bytes that come back");
    const size_t characters = (content.size() + 2) / 3 * 4;
    const Exact plain(characters + 2 * (characters / 72) + 1);
    ZKQGeneral_ConvertToBase64(bytes.Data(), static_cast<unsigned>(bytes.Size()), plain.Text());
    worker.Right(strlen(plain.Text()) + 1 == static_cast<size_t>(plain.Size()), "the length of the broken text");
}

/// A Chinese text in GBK: rows of the level 1 characters.
std::string Chinese(Worker& worker)
{
    std::string text;
    for (size_t i = worker.Below(200); i > 0; --i)
        if (worker.Maybe())
            text += worker.Word(1);
        else
            text.append(1, static_cast<char>(0xB0 + worker.Below(0x27)))
                .append(1, static_cast<char>(0xA1 + worker.Below(94)));
    return text;
}

void Charsets(Worker& worker)
{
    const std::string text = Chinese(worker);
    const Exact gbk(text);
    const Exact utf8(3 * text.size() + 1);
    int length = utf8.Size();
    worker.Must(ZKQGeneral_AnsiToUTF8(gbk.Text(), utf8.Text(), gbk.Size(), &length), "AnsiToUTF8");
    const Exact back(text.size() + 1);
    int backLength = back.Size();
    worker.Must(ZKQGeneral_UTF8ToAnsi(utf8.Text(), back.Text(), length, &backLength), "UTF8ToAnsi");
    worker.Right(back.String(static_cast<size_t>(backLength)) == text, "GBK through UTF-8");
    const Exact ucs2(2 * text.size() + 2);
    auto* const units = reinterpret_cast<unsigned short*>(ucs2.Data());
    length = ucs2.Size();
    worker.Must(ZKQGeneral_AnsiToUnicode(gbk.Text(), units, gbk.Size(), &length), "AnsiToUnicode");
    backLength = back.Size();
    worker.Must(ZKQGeneral_UnicodeToAnsi(units, back.Text(), length, &backLength), "UnicodeToAnsi");
    worker.Right(back.String(static_cast<size_t>(backLength)) == text, "GBK through UCS-2");
}

void ErrorText(Worker& worker)
{
    worker.Right(!ZKQGeneral_IsFileExist("/nowhere/at/all"), "what is nowhere does not exist");
    worker.Right(ReadErrorText().size() < kErrorTextSize, "the error text is terminated");
    char text[100];
    worker.Must(ZKQGeneral_GetSystemErrorInfoString(2, text, sizeof text), "GetSystemErrorInfoString");
    worker.Right(strcmp(text, "No such file or directory") == 0, "the text of a number");
}

} // namespace

void AddText(Operations& operations)
{
    operations.insert(operations.end(), {{"string", "splitting", Split, 4},
                                         {"string", "memory object", Memory, 4},
                                         {"msgpacket", "round trip", Packet, 4},
                                         {"base64", "round trip", Base64, 4},
                                         {"iconv", "round trips", Charsets, 4},
                                         {"error", "text", ErrorText, 4}});
}

} // namespace strain

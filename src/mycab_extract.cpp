#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <string.h>
#include <sys/stat.h>

#include <charconv>
#include <span>

#include "internal/error.h"
#include "internal/file.h"
#include "internal/mycab.h"
#include "internal/profile_text.h"
#include "internal/text.h"
#include "internal/zlib_stream.h"

// The functions in here that return BOOL set the error text when they return FALSE.

namespace {

constexpr int64_t kMaxRatio = 1032;       // plain bytes that one byte of a zlib stream can stand for
constexpr size_t kMinSectionSize = 32;    // of a valid member in the directory; really a little more
constexpr size_t kNumberSize = 100;       // a number is read from this many bytes
constexpr mode_t kModeWithoutFlag = 0444; // read-only for all
constexpr mode_t kModes = 07777;

/// A member as the directory has it.
struct CabMember {
    std::array<std::string_view, kCabKeys> values;
    std::array<bool, kCabKeys> found;

    std::string_view Name() const { return values[kCabName]; }
    /// As atol() reads it from a buffer of kNumberSize bytes; a key that is missing is 0.
    long Number(CabKey key) const
    {
        char text[kNumberSize];
        TextBuilder(text).Add(values[key]);
        return strtol(text, nullptr, 10);
    }
};

/// The number of the member that a section belongs to, or -1.
long SectionNumber(std::string_view section)
{
    if (section.size() <= kCabSection.size() || !EqualNoCase(section.substr(0, kCabSection.size()), kCabSection))
        return -1;
    const std::string_view digits = After(section, kCabSection.size());
    const char* const end = digits.data() + digits.size();
    long number = 0;
    const auto [stop, error] = std::from_chars(digits.data(), end, number);
    const bool isCanonical = digits == "0" || (digits[0] >= '1' && digits[0] <= '9');
    return error == std::errc() && stop == end && isCanonical ? number : -1;
}

/// Notes the value of an entry, unless the member has had its key before.
void NoteEntry(const ProfileEntry& entry, CabMember* member)
{
    for (size_t key = 0; key < kCabKeys; ++key) {
        if (!member->found[key] && EqualNoCase(entry.key, kCabKeyNames[key])) {
            member->found[key] = true;
            member->values[key] = entry.value;
        }
    }
}

/// Finds in one pass what looking up key after key would find. Nothing is found behind a line that stops a look-up.
void ReadMembers(std::string_view text, std::span<CabMember> members)
{
    ProfileReader reader(text);
    ProfileLine line;
    CabMember* member = nullptr;
    while (reader.Next(&line) && line.kind != ProfileLine::kBadHeader && line.kind != ProfileLine::kTooLong) {
        if (line.kind != ProfileLine::kHeader) {
            if (member != nullptr)
                NoteEntry(ParseINIFileLine(line.text), member);
            continue;
        }
        const long number = SectionNumber(line.name);
        const bool isMember = number >= 0 && static_cast<size_t>(number) < members.size();
        member = isMember ? &members[static_cast<size_t>(number)] : nullptr;
    }
}

/// A buffer that is used again.
class Scratch {
public:
    /// Null if there is no memory.
    unsigned char* Reserve(size_t size)
    {
        if (size > capacity_) {
            block_.reset(static_cast<unsigned char*>(malloc(size)));
            capacity_ = block_ == nullptr ? 0 : size;
        }
        return block_.get();
    }
    /// Gives the buffer away; the next use makes a new one.
    MallocPtr<unsigned char> Release()
    {
        capacity_ = 0;
        return std::move(block_);
    }

private:
    MallocPtr<unsigned char> block_;
    size_t capacity_ = 0;
};

/// Reads a cabinet that may have come from anybody.
class CabReader {
public:
    BOOL Open(LPCTSTR CabFile);
    /// Finds the members; before this only their number is known.
    BOOL ReadDirectory();
    /// Decompresses a member, which is in use until the next.
    BOOL Read(const CabMember& member, std::span<const unsigned char>* content);
    int64_t Count() const { return CabNumber(header_.Count); }
    /// A member without a name if the directory has none of this number.
    const CabMember& Member(long index) const
    {
        return members_.get()[std::min(static_cast<size_t>(index), readable_)];
    }

private:
    BOOL ReadStream(int64_t start, int64_t compactSize, int64_t size, std::span<const unsigned char>* content);

    UniqueFd file_;
    CabHeader header_;
    int64_t unclaimed_; ///< bytes of the file that no stream has been read from
    int64_t length_;
    Inflater inflater_;
    Scratch compact_;
    Scratch plain_;
    MallocPtr<unsigned char> text_; ///< the directory
    MallocPtr<CabMember> members_;
    size_t readable_; ///< how many of them a directory of its size can have at most; behind them is an empty one
};

/// Reads exactly the bytes at a place of a file; 0 or an errno value.
int ReadFileToBuffer(int file, void* buffer, size_t size, int64_t start)
{
    auto* next = static_cast<unsigned char*>(buffer);
    while (size > 0) {
        const ssize_t count = pread(file, next, size, start);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return count < 0 ? errno : EBADMSG;
        next += count;
        start += count;
        size -= static_cast<size_t>(count);
    }
    return 0;
}

BOOL CabReader::Open(LPCTSTR CabFile)
{
    file_.Reset(OpenNoWait(CabFile, O_RDONLY));
    if (!file_.IsOpen())
        return FailWithErrno();
    struct statx status;
    if (const int error = LookAt(file_.Get(), &status))
        return Fail(error);
    length_ = static_cast<int64_t>(status.stx_size);
    unclaimed_ = length_ - static_cast<int64_t>(sizeof header_);
    return Finish(ReadFileToBuffer(file_.Get(), &header_, sizeof header_, 0));
}

/// Decompresses a stream, cut to `size`. No two streams may share bytes: a small file would stand for a huge one.
BOOL CabReader::ReadStream(int64_t start, int64_t compactSize, int64_t size, std::span<const unsigned char>* content)
{
    if (start < static_cast<int64_t>(sizeof header_) || compactSize <= 0 || compactSize > unclaimed_ ||
        compactSize > INT_MAX || start > length_ - compactSize)
        return Fail(EBADMSG);
    if (size <= 0 || size > INT_MAX || size > compactSize * kMaxRatio)
        return Fail(EBADMSG);
    unclaimed_ -= compactSize;
    const std::span compact(compact_.Reserve(static_cast<size_t>(compactSize)), static_cast<size_t>(compactSize));
    const std::span plain(plain_.Reserve(static_cast<size_t>(size)), static_cast<size_t>(size));
    if (compact.data() == nullptr || plain.data() == nullptr)
        return Fail(ENOMEM);
    if (const int error = ReadFileToBuffer(file_.Get(), compact.data(), compact.size(), start))
        return Fail(error);
    size_t produced = 0;
    int result = inflater_.Start();
    if (result == 0)
        result = inflater_.Decompress(compact, plain, &produced);
    if (result != 0)
        return FailInZlib(result);
    *content = plain;
    return produced < plain.size() ? Fail(EBADMSG) : TRUE;
}

BOOL CabReader::ReadDirectory()
{
    std::span<const unsigned char> directory;
    if (!ReadStream(CabNumber(header_.DirectoryPos), CabNumber(header_.DirectoryCompactSize),
                    CabNumber(header_.DirectorySize), &directory))
        return FALSE;
    if (Count() < 0)
        return Fail(EBADMSG);
    readable_ = std::min(static_cast<size_t>(Count()), directory.size() / kMinSectionSize);
    text_ = plain_.Release();
    members_.reset(static_cast<CabMember*>(calloc(readable_ + 1, sizeof(CabMember))));
    if (members_ == nullptr)
        return FailWithErrno();
    const auto* text = reinterpret_cast<const char*>(directory.data());
    ReadMembers({text, strnlen(text, directory.size())}, {members_.get(), readable_});
    return TRUE;
}

BOOL CabReader::Read(const CabMember& member, std::span<const unsigned char>* content)
{
    return ReadStream(member.Number(kCabStartPos), member.Number(kCabCompactSize), member.Number(kCabSize), content);
}

/// The directory that members are extracted to. Nothing is ever written outside: names lead down only, and no link is
/// followed, whoever has put it there.
class CabTarget {
public:
    explicit CabTarget(LPCTSTR directory) : path_(target_)
    {
        path_.Add(directory);
        if (*directory != '\0' && !path_.Text().ends_with('/'))
            path_.Add('/');
        prefix_ = path_.Text().size();
    }

    /// Sets the target path; false if the name is none that can be below the directory.
    bool SetName(std::string_view name);
    /// Creates the directories of the target path.
    BOOL CreateExtractFileDir();
    /// Writes the target file.
    BOOL Write(std::span<const unsigned char> content, long accessFlag, long writeTime);
    std::string_view Path() const { return path_.Text(); }

private:
    BOOL OpenRoot();
    int EnterSubdirectories(std::string_view path);

    char target_[kPathSize] = {};
    TextBuilder path_;
    size_t prefix_;                   ///< bytes of the target path before the name
    size_t base_ = 0;                 ///< bytes of the target path before the last component
    UniqueFd root_;                   ///< the directory
    UniqueFd parent_;                 ///< the one below it that holds the target
    char parentName_[kPathSize] = {}; ///< of parent_, with a "/" behind; members of a directory stand together
};

/// No absolute path, no way up, and a last component.
bool IsNameBelow(std::string_view name)
{
    if (name.starts_with('/') || name.ends_with('/'))
        return false;
    while (!name.empty()) {
        const size_t length = std::min(name.find('/'), name.size());
        if (name.substr(0, length) == "..")
            return false;
        name = After(name, std::min(length + 1, name.size()));
    }
    return true;
}

bool CabTarget::SetName(std::string_view name)
{
    path_.CutTo(prefix_);
    path_.Add(name);
    base_ = prefix_ + name.rfind('/') + 1;
    return !name.empty() && !path_.WasCut() && IsNameBelow(name);
}

/// Opens the directory itself, which may well be reached through links; it is made if it is not there.
BOOL CabTarget::OpenRoot()
{
    if (root_.IsOpen())
        return TRUE;
    char path[kPathSize];
    TextBuilder(path).Add(Path().substr(0, prefix_));
    if (prefix_ > 0 && !ZKQGeneral_CreateMultiLevelDirectory(path))
        return FALSE;
    root_.Reset(open(prefix_ > 0 ? path : ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
    return root_.IsOpen() ? TRUE : FailWithErrno();
}

/// Opens a directory without following a link, and makes it if it is not there.
int OpenOrMakeDirectory(int parent, const char* name)
{
    constexpr int kFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    const int fd = openat(parent, name, kFlags);
    if (fd >= 0 || errno != ENOENT || (mkdirat(parent, name, 0777) != 0 && errno != EEXIST))
        return fd;
    return openat(parent, name, kFlags);
}

/// Makes parent_ the directory `path`, which ends in "/"; 0 or an errno value.
int CabTarget::EnterSubdirectories(std::string_view path)
{
    parent_.Reset(openat(root_.Get(), ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
    for (std::string_view rest = path; parent_.IsOpen() && !rest.empty();) {
        char name[kPathSize];
        const size_t length = rest.find('/');
        TextBuilder(name).Add(rest.substr(0, length));
        parent_.Reset(OpenOrMakeDirectory(parent_.Get(), name));
        rest = After(rest, length + 1);
    }
    return parent_.IsOpen() ? 0 : errno;
}

BOOL CabTarget::CreateExtractFileDir()
{
    const std::string_view subdirectory = After(Path().substr(0, base_), prefix_);
    if (subdirectory.find("//") != std::string_view::npos)
        return Fail(EINVAL);
    if (!OpenRoot())
        return FALSE;
    if (parent_.IsOpen() && subdirectory == parentName_)
        return TRUE;
    if (const int error = EnterSubdirectories(subdirectory))
        return Fail(error);
    TextBuilder(parentName_).Add(subdirectory);
    return TRUE;
}

/// Opens an existing file to be written anew: -1 with errno, EEXIST if it is a link, one of several names of a file, or
/// not a regular file.
int OpenExisting(int directory, const char* name)
{
    UniqueFd file(openat(directory, name, O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status;
    if (!file.IsOpen()) {
        if (errno == ELOOP || errno == ENXIO)
            errno = EEXIST;
        return -1;
    }
    if (fstat(file.Get(), &status) != 0)
        return -1;
    if (!S_ISREG(status.st_mode) || status.st_nlink != 1) {
        errno = EEXIST;
        return -1;
    }
    return ftruncate(file.Get(), 0) == 0 ? file.Release() : -1;
}

/// Opens a file for writing. What stands in its place is replaced without touching what it leads to.
int CreateTarget(int directory, const char* name)
{
    constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    constexpr mode_t kModeAtFirst = 0600; // nobody reads it before its mode is set
    int fd = openat(directory, name, kFlags, kModeAtFirst);
    if (fd >= 0 || errno != EEXIST)
        return fd;
    fd = OpenExisting(directory, name);
    if (fd >= 0 || errno != EEXIST || unlinkat(directory, name, 0) != 0)
        return fd;
    return openat(directory, name, kFlags, kModeAtFirst);
}

BOOL CabTarget::Write(std::span<const unsigned char> content, long accessFlag, long writeTime)
{
    UniqueFd file(CreateTarget(parent_.Get(), target_ + base_));
    if (!file.IsOpen())
        return FailWithErrno();
    const std::string_view bytes(reinterpret_cast<const char*>(content.data()), content.size());
    if (const int error = WriteAll(file.Get(), bytes))
        return Fail(error);
    const mode_t mode = accessFlag == 0 ? kModeWithoutFlag : static_cast<mode_t>(accessFlag) & kModes;
    const timespec time = {writeTime, writeTime == 0 ? UTIME_NOW : 0};
    const timespec times[] = {time, time};
    if (fchmod(file.Get(), mode) != 0 || futimens(file.Get(), times) != 0 || close(file.Release()) != 0)
        return FailWithErrno();
    return TRUE;
}

BOOL ExtractFileFromCAB(const CabMember& member, CabReader* cabinet, CabTarget* target)
{
    if (!target->SetName(member.Name()))
        return Fail(EBADMSG);
    if (member.Number(kCabStartPos) == 0 || member.Number(kCabCompactSize) == 0 || member.Number(kCabSize) == 0)
        return Fail(EBADMSG);
    std::span<const unsigned char> content;
    return target->CreateExtractFileDir() && cabinet->Read(member, &content) &&
                   target->Write(content, member.Number(kCabAccessFlag), member.Number(kCabTime))
               ? TRUE
               : FALSE;
}

/// Extracts one member, or with index -1 all; the path of the last goes to `OutFileName`, unless that is null.
BOOL ExtractMyCabFile_R(LPCTSTR CabFile, LPCTSTR Directory, long index, THREADPROC_C Progress, LPTSTR OutFileName)
{
    if (CabFile == nullptr || Directory == nullptr)
        return Fail(EINVAL);
    if (strlen(Directory) >= kPathSize)
        return Fail(ENAMETOOLONG);
    CabReader cabinet;
    if (!cabinet.Open(CabFile))
        return FALSE;
    if (index >= cabinet.Count())
        return Fail(EINVAL);
    if (!cabinet.ReadDirectory())
        return FALSE;
    CabTarget target(Directory);
    MyCab_Progress progress(Progress, static_cast<double>(cabinet.Count()));
    const long first = index < 0 ? 0 : index;
    const long end = index < 0 ? cabinet.Count() : index + 1;
    for (long i = first; i < end; ++i) {
        if (!ExtractFileFromCAB(cabinet.Member(i), &cabinet, &target))
            return FALSE;
        progress.Finished(1);
    }
    if (OutFileName != nullptr)
        OutFileName[target.Path().copy(OutFileName, kPathSize - 1)] = '\0';
    return TRUE;
}

} // namespace

BOOL ZKQGeneral_ExtractMyCabAllFile(LPCTSTR CabFile, LPCTSTR Directory)
{
    return ExtractMyCabFile_R(CabFile, Directory, -1, nullptr, nullptr);
}

BOOL ZKQGeneral_ExtractMyCabAllFile_P(LPCTSTR CabFile, LPCTSTR Directory, THREADPROC_C Progress)
{
    return ExtractMyCabFile_R(CabFile, Directory, -1, Progress, nullptr);
}

BOOL ZKQGeneral_ExtractMyCabOneFile(LPCTSTR CabFile, LPTSTR FileName, long index)
{
    return index < 0 ? Fail(EINVAL) : ExtractMyCabFile_R(CabFile, FileName, index, nullptr, FileName);
}

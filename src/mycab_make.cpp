#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <string.h>
#include <sys/stat.h>

#include "internal/error.h"
#include "internal/file.h"
#include "internal/memory_object.h"
#include "internal/mycab.h"
#include "internal/profile_text.h"
#include "internal/text.h"
#include "internal/zlib_stream.h"

// The functions in here return FALSE with the error text set.

namespace {

constexpr size_t kMinNameLength = 2;
constexpr int kWriteBlock = 256 * 1024; // streams of small members are written together
constexpr size_t kSectionSize = 256;    // of a member in the directory, more or less

struct FILEINFORMATION {
    long WriteTime;
    long AccessFlag;
    DWORD Size;
    char Name[kPathSize]; ///< full path on disk
    long StartPos;
    long CompactSize;
    char Directory[kPathSize]; ///< below which the file was found; empty for a file that was named itself
};

constexpr std::string_view WithoutTrailingSlashes(std::string_view path)
{
    return path.substr(0, path.find_last_not_of('/') + 1);
}

/// The name of a member inside the archive.
std::string_view NameInCabinet(std::string_view path, std::string_view root)
{
    return root.empty() ? BaseName(path) : After(path, WithoutTrailingSlashes(root).size() + 1);
}

/// The members of a cabinet to be made.
class FileList {
public:
    explicit FileList(LPCTSTR CabFile) { cabinetExists_ = stat(CabFile, &cabinet_) == 0; }

    /// Adds what a name of the caller's list stands for.
    BOOL PreProcess(std::string_view name, bool takeFiles);
    std::span<FILEINFORMATION> Files() { return {files_.get(), count_}; }
    double TotalSize() const { return totalSize_; }
    /// What has the cabinet's name is no device or the like, which must not be removed.
    bool MayRemoveCabinet() const { return !cabinetExists_ || S_ISREG(cabinet_.st_mode); }

private:
    BOOL MakeFileList(char (&path)[kPathSize], size_t length, bool takeFiles, std::string_view root);
    BOOL ListEntry(char (&path)[kPathSize], size_t length, const dirent& entry, bool takeFiles, std::string_view root);
    BOOL FillFileInformation(LPCTSTR path, std::string_view root);
    int Check(const struct stat& status) const;
    FILEINFORMATION* Append();

    MallocPtr<FILEINFORMATION> files_;
    size_t count_ = 0;
    size_t capacity_ = 0;
    double totalSize_ = 0;
    struct stat cabinet_;
    bool cabinetExists_;
};

FILEINFORMATION* FileList::Append()
{
    if (count_ == capacity_) {
        const size_t capacity = std::max(2 * capacity_, size_t{64});
        auto* grown = static_cast<FILEINFORMATION*>(reallocarray(files_.get(), capacity, sizeof(FILEINFORMATION)));
        if (grown == nullptr)
            return nullptr;
        static_cast<void>(files_.release()); // reallocarray() has taken it
        files_.reset(grown);
        capacity_ = capacity;
    }
    FILEINFORMATION* file = files_.get() + count_++;
    *file = {};
    return file;
}

/// 0 if a file can be a member, or an errno value.
int FileList::Check(const struct stat& status) const
{
    if (S_ISDIR(status.st_mode))
        return EISDIR;
    if (!S_ISREG(status.st_mode) || status.st_size == 0)
        return EINVAL;
    const bool isCabinet = cabinetExists_ && status.st_ino == cabinet_.st_ino && status.st_dev == cabinet_.st_dev;
    return isCabinet ? EINVAL : 0;
}

BOOL FileList::FillFileInformation(LPCTSTR path, std::string_view root)
{
    struct stat status;
    if (stat(path, &status) != 0)
        return FailWithErrno();
    if (const int error = Check(status))
        return Fail(error);
    if (NameInCabinet(path, root).find('\n') != std::string_view::npos)
        return Fail(EINVAL); // it would be lines of the directory
    FILEINFORMATION* file = Append();
    if (file == nullptr)
        return FailWithErrno();
    file->WriteTime = status.st_mtime;
    file->AccessFlag = status.st_mode;
    file->Size = static_cast<DWORD>(status.st_size);
    TextBuilder(file->Name).Add(path);
    TextBuilder(file->Directory).Add(root);
    totalSize_ += static_cast<double>(file->Size);
    return TRUE;
}

/// Adds an entry of the directory that is the first `length` bytes of `path`.
BOOL FileList::ListEntry(char (&path)[kPathSize], size_t length, const dirent& entry, bool takeFiles,
                         std::string_view root)
{
    const std::string_view name = entry.d_name;
    const bool isDirectory = entry.d_type == DT_DIR;
    if (name == "." || name == ".." || (!isDirectory && !takeFiles))
        return TRUE;
    const size_t newLength = length + 1 + name.size();
    if (newLength >= kPathSize)
        return Fail(ENAMETOOLONG);
    path[length] = '/';
    path[length + 1 + name.copy(path + length + 1, name.size())] = '\0';
    return isDirectory ? MakeFileList(path, newLength, true, root) : FillFileInformation(path, root);
}

/// Adds what lies below a directory, the first `length` bytes of `path`; without `takeFiles` only what lies below its
/// directories.
BOOL FileList::MakeFileList(char (&path)[kPathSize], size_t length, bool takeFiles, std::string_view root)
{
    const UniqueDir directory(opendir(length == 0 ? "/" : path));
    if (directory == nullptr)
        return FailWithErrno();
    for (;;) {
        errno = 0;
        const dirent* entry = readdir(directory.get());
        if (entry == nullptr)
            return errno == 0 ? TRUE : FailWithErrno();
        if (!ListEntry(path, length, *entry, takeFiles, root))
            return FALSE;
        path[length] = '\0';
    }
}

BOOL FileList::PreProcess(std::string_view name, bool takeFiles)
{
    char path[kPathSize];
    TextBuilder(path).Add(name);
    BOOL isDirectory = FALSE;
    if (!ZKQGeneral_IsDirectoryName(path, &isDirectory))
        return FALSE;
    if (!isDirectory)
        return FillFileInformation(path, {});
    const size_t length = WithoutTrailingSlashes(name).size();
    path[length] = '\0';
    return MakeFileList(path, length, takeFiles, name);
}

/// Calls `use` for each name of a list, without one trailing "/".
template <class Use>
BOOL ForEachName(LPCTSTR FileNames, Use use)
{
    for (std::string_view name = FileNames; !name.empty(); name = name.data() + name.size() + 1)
        if (!use(name.ends_with('/') ? name.substr(0, name.size() - 1) : name))
            return FALSE;
    return TRUE;
}

BOOL CheckName(std::string_view name)
{
    if (name.size() < kMinNameLength)
        return Fail(EINVAL);
    if (name.size() >= kPathSize)
        return Fail(ENAMETOOLONG);
    char path[kPathSize];
    TextBuilder(path).Add(name);
    return ZKQGeneral_IsFileExist(path);
}

/// Finds all members, in the order of the cabinet.
BOOL ListFiles(LPCTSTR FileNames, int Flag, FileList* list)
{
    if (!ForEachName(FileNames, CheckName))
        return FALSE;
    if (!ForEachName(FileNames, [&](std::string_view name) { return list->PreProcess(name, Flag != 0); }))
        return FALSE;
    return list->Files().empty() ? Fail(EINVAL) : TRUE;
}

/// A number as the directory has it: its low 32 bits with a sign.
std::string_view ultoa(long number, char (&text)[16])
{
    TextBuilder builder(text);
    return builder.AddDecimal(static_cast<int>(number)).Text();
}

/// Appends the section of a member. A name is a line of its own and ends at a carriage return, as lines do.
int AddSection(const FILEINFORMATION& file, size_t index, ProfileOutput* directory)
{
    char section[32];
    TextBuilder(section).Add(kCabSection).AddDecimal(static_cast<long>(index));
    const std::string_view name = NameInCabinet(file.Name, file.Directory);
    if (const int error = directory->AddSection(section, {kCabKeyNames[kCabName], name.substr(0, name.find('\r'))}))
        return error;
    const long numbers[] = {file.StartPos, file.CompactSize, static_cast<long>(file.Size), file.WriteTime,
                            file.AccessFlag};
    char text[16];
    for (size_t i = 0; i < std::size(numbers); ++i)
        if (const int error = directory->Add({kCabKeyNames[kCabStartPos + i], ultoa(numbers[i], text)}))
            return error;
    return 0;
}

/// Writes a cabinet, member after member.
class CabWriter {
public:
    BOOL Create(LPCTSTR CabFile, size_t count);
    BOOL AddFileToCab(FILEINFORMATION* file);
    BOOL AddDirectory(std::span<const FILEINFORMATION> files);
    BOOL Complete();
    /// What was in the file is lost.
    bool IsCreated() const { return isCreated_; }

private:
    BOOL Add(std::span<const unsigned char> content, long* compactSize);
    BOOL Flush();

    UniqueFd file_;
    CabHeader header_ = {};
    Deflater deflater_;
    MemoryObject output_;
    long position_ = 0;
    bool isCreated_ = false;
};

BOOL CabWriter::Create(LPCTSTR CabFile, size_t count)
{
    output_ = MakeMemoryObject(kWriteBlock);
    if (output_ == nullptr)
        return Fail(ENOMEM);
    file_.Reset(OpenNoWait(CabFile, O_WRONLY | O_CREAT | O_TRUNC, 0666));
    if (!file_.IsOpen())
        return FailWithErrno();
    isCreated_ = true;
    header_.Count = CabNumber(static_cast<int64_t>(count));
    position_ = sizeof header_;
    return Finish(WriteAll(file_.Get(), {reinterpret_cast<const char*>(&header_), sizeof header_}));
}

/// Writes what has gathered.
BOOL CabWriter::Flush()
{
    GMEM* const gathered = output_.get();
    const std::string_view bytes(reinterpret_cast<const char*>(gathered->Buf), static_cast<size_t>(gathered->Size));
    if (const int error = WriteAll(file_.Get(), bytes))
        return Fail(error);
    gathered->Size = 0;
    gathered->WritePos = 0;
    return TRUE;
}

/// Adds bytes as one stream.
BOOL CabWriter::Add(std::span<const unsigned char> content, long* compactSize)
{
    const int before = output_->Size;
    int result = deflater_.Start();
    if (result == 0)
        result = deflater_.Compress(content, output_.get());
    if (result != 0)
        return FailInZlib(result);
    *compactSize = output_->Size - before;
    position_ += *compactSize;
    return output_->Size < kWriteBlock || Flush() ? TRUE : FALSE;
}

BOOL CabWriter::AddFileToCab(FILEINFORMATION* file)
{
    if (position_ > INT_MAX)
        return Fail(EFBIG); // what lies there could not be found again
    unsigned char* content = nullptr;
    int size = 0;
    if (const int error = FileContent(file->Name, &content, &size))
        return Fail(error);
    const MallocPtr<unsigned char> owner(content);
    if (size == 0)
        return Fail(EINVAL);
    file->Size = static_cast<DWORD>(size);
    file->StartPos = position_;
    return Add({content, file->Size}, &file->CompactSize);
}

BOOL CabWriter::AddDirectory(std::span<const FILEINFORMATION> files)
{
    ProfileOutput directory = ProfileOutput::ToFile(files.size() * kSectionSize);
    if (!directory.IsReady())
        return FailWithErrno();
    for (size_t i = 0; i < files.size(); ++i)
        if (const int error = AddSection(files[i], i, &directory))
            return Fail(error);
    const std::string_view text = directory.Text();
    const long start = position_;
    long compactSize = 0;
    if (!Add({reinterpret_cast<const unsigned char*>(text.data()), text.size()}, &compactSize))
        return FALSE;
    header_.DirectoryPos = CabNumber(start);
    header_.DirectoryCompactSize = CabNumber(compactSize);
    header_.DirectorySize = CabNumber(static_cast<int64_t>(text.size()));
    return TRUE;
}

/// Writes the header anew, now that all is known.
BOOL CabWriter::Complete()
{
    if (!Flush())
        return FALSE;
    const ssize_t written = pwrite(file_.Get(), &header_, sizeof header_, 0);
    if (written != static_cast<ssize_t>(sizeof header_))
        return written < 0 ? FailWithErrno() : Fail(EIO);
    return close(file_.Release()) == 0 ? TRUE : FailWithErrno();
}

BOOL WriteCabinet(LPCTSTR CabFile, FileList& list, THREADPROC_C Progress, CabWriter* cabinet)
{
    const std::span<FILEINFORMATION> files = list.Files();
    if (!cabinet->Create(CabFile, files.size()))
        return FALSE;
    MyCab_Progress progress(Progress, list.TotalSize());
    for (FILEINFORMATION& file : files) {
        if (!cabinet->AddFileToCab(&file))
            return FALSE;
        progress.Finished(static_cast<double>(file.Size));
    }
    return cabinet->AddDirectory(files) && cabinet->Complete() ? TRUE : FALSE;
}

BOOL MakeMyCabFile_R(LPCTSTR CabFile, LPCTSTR FileNames, int Flag, THREADPROC_C Progress)
{
    if (CabFile == nullptr || FileNames == nullptr)
        return Fail(EINVAL);
    FileList list(CabFile);
    if (!ListFiles(FileNames, Flag, &list))
        return FALSE;
    CabWriter cabinet;
    const BOOL made = WriteCabinet(CabFile, list, Progress, &cabinet);
    if (!made && cabinet.IsCreated() && list.MayRemoveCabinet())
        unlink(CabFile);
    return made;
}

} // namespace

BOOL ZKQGeneral_MakeMyCabFile(LPCTSTR CabFile, LPCTSTR FileNames, int Flag)
{
    return MakeMyCabFile_R(CabFile, FileNames, Flag, nullptr);
}

BOOL ZKQGeneral_MakeMyCabFile_P(LPCTSTR CabFile, LPCTSTR FileNames, int Flag, THREADPROC_C Progress)
{
    return MakeMyCabFile_R(CabFile, FileNames, Flag, Progress);
}

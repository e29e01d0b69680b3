// Failing systems: each call into the system that an operation makes is made to fail in turn, until it makes no more.
// Every failure is reported, nothing leaks, and nothing is lost that need not be.
#include "fault.h"

#include <ZKQ_general.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <functional>

#include "../../src/internal/converter.h"
#include "../../src/internal/log.h"
#include "../support/bare_iconv.h"
#include "../support/cabinet.h"
#include "../support/error_text.h"
#include "../support/log_context.h"
#include "../support/xml.h"

namespace {

using support::LogDir;
using support::ReadFile;
using support::WriteFile;

/// An operation, made ready anew for each run.
struct Scenario {
    const char* name;
    std::function<void(const LogDir&)> prepare;
    std::function<bool(const LogDir&)> run;
    /// Functions whose failure the operation gets over, and may then succeed.
    std::vector<std::string> tolerated;
    /// It fails without a text of its own when these fail.
    std::vector<std::string> silent;

    friend void PrintTo(const Scenario& row, std::ostream* out) { *out << row.name; }
};

class Sweep : public testing::TestWithParam<Scenario> {};

TEST_P(Sweep, EveryFailureIsReportedAndNothingLeaks)
{
    const Scenario& scenario = GetParam();
    int hits = 0;
    for (const std::string& function : fault::Functions()) {
        for (int call = 1;; ++call) {
            const LogDir dir;
            scenario.prepare(dir);
            support::MarkErrorText();
            const int before = fault::OpenDescriptors();
            fault::Arm(function, call, {ENOSYS, false});
            SCOPED_TRACE(function + " call " + std::to_string(call));
            const bool succeeded = scenario.run(dir);
            const bool hit = fault::Disarm();
            EXPECT_EQ(fault::OpenDescriptors(), before) << function << " call " << call;
            if (!hit) {
                EXPECT_TRUE(succeeded);
                break;
            }
            ++hits;
            EXPECT_TRUE(!succeeded || fault::Has(scenario.tolerated, function)) << function << " call " << call;
            if (!succeeded && !fault::Has(scenario.silent, function)) {
                EXPECT_FALSE(support::ErrorTextIsMarked()) << function << " call " << call;
            }
        }
    }
    EXPECT_GT(hits, 0);
}

char* Mutable(std::string& text)
{
    return text.data();
}

void Profile(const LogDir& dir)
{
    WriteFile(dir.File("p.ini"), "[S]\nk = v\n[T]\nx = y\n");
}

void Source(const LogDir& dir)
{
    WriteFile(dir.File("src"), std::string(100000, 's'));
}

bool ReadAll(const LogDir& dir)
{
    unsigned char* content = nullptr;
    int size = 0;
    const BOOL read = ZKQGeneral_GetFileContent(dir.File("src").c_str(), &content, &size);
    EXPECT_EQ(content != nullptr, read == TRUE);
    ZKQGeneral_FreeMallocBuffer(content);
    return read;
}

bool WriteKey(const LogDir& dir)
{
    const std::string value(500, 'w');
    const bool written = ZKQGeneral_WritePrivateProfileString("S", "n", value.c_str(), dir.File("p.ini").c_str());
    const std::string text = ReadFile(dir.File("p.ini"));
    EXPECT_TRUE(!written || text == "[S]\nk = v\nn = " + value + "\n[T]\nx = y\n");
    return written;
}

// The functions for JSON leave the error text alone; what they tell in the log is tested below.

std::string ManyValues()
{
    std::string text = "[0";
    for (int i = 1; i < 200; ++i)
        text += ",{\"name\":[" + std::to_string(i) + ",\"text\"]}";
    return text + "]";
}

bool ReadJson(const LogDir&)
{
    std::string text;
    {
        const fault::Pause pause;
        text = ManyValues();
    }
    void* ctx = nullptr;
    const int code = JSON_Misc_InitJSON(text.c_str(), &ctx);
    EXPECT_TRUE(code == 0 || code == -8 || code == -9);
    EXPECT_EQ(ctx != nullptr, code == 0);
    if (code == 0)
        JSON_Misc_FiniJSON(ctx, nullptr);
    return code == 0;
}

bool WriteJson(const LogDir&)
{
    void* ctx = nullptr;
    char* text = nullptr;
    {
        const fault::Pause pause;
        EXPECT_EQ(JSON_Misc_InitJSON(ManyValues().c_str(), &ctx), 0);
    }
    EXPECT_EQ(JSON_Misc_FiniJSON(ctx, &text), 0) << "the document is closed in every case";
    ZKQGeneral_FreeMallocBuffer(text);
    return text != nullptr;
}

bool BuildJson(const LogDir&)
{
    void* ctx = nullptr;
    if (JSON_Misc_InitJSON(nullptr, &ctx) != 0)
        return false;
    void* list = nullptr;
    void* record = nullptr;
    int count = 0;
    size_t* nodes = nullptr;
    const auto* const value = reinterpret_cast<const unsigned char*>("value");
    const bool built =
        JSON_Misc_GetChildNode_AutoAdd(ctx, "a/b/list", &list) == 0 && JSON_Misc_SetNodeArrayType(list) == 0 &&
        JSON_Misc_CreateObjectNode(list, &record) == 0 && JSON_Misc_SetString(record, "n", "text") == 0 &&
        JSON_Misc_SetString(record, "n", "other") == 0 && JSON_Misc_SetInt(record, "i", 5) == 0 &&
        JSON_Misc_SetStringArray(list, value) == 0 && JSON_Misc_SetHexArray(list, value, 5) == 0 &&
        JSON_Misc_SetB64Array(list, value, 5) == 0 && JSON_Misc_GetArrayInfo(ctx, "a/b/list", &count, &nodes) == 0;
    EXPECT_TRUE(!built || count == 4);
    ZKQGeneral_FreeMallocBuffer(nodes);
    JSON_Misc_FiniJSON(ctx, nullptr);
    return built;
}

bool JsonBytes(const LogDir&)
{
    void* ctx = nullptr;
    if (JSON_Misc_InitJSON(nullptr, &ctx) != 0)
        return false;
    const auto* const value = reinterpret_cast<const unsigned char*>("value");
    unsigned char* hex = nullptr;
    unsigned char* base64 = nullptr;
    int length = 0;
    const bool done = JSON_Misc_SetHexData(ctx, "h", value, 5) == 0 && JSON_Misc_SetB64Data(ctx, "b", value, 5) == 0 &&
                      JSON_Misc_GetHexData(ctx, "h", &hex, &length) == 0 &&
                      JSON_Misc_GetB64Data(ctx, "b", &base64, &length) == 0;
    ZKQGeneral_FreeMallocBuffer(hex);
    ZKQGeneral_FreeMallocBuffer(base64);
    JSON_Misc_FiniJSON(ctx, nullptr);
    return done;
}

/// Many sections of a name: the text grows beyond what was first reserved.
void Repeated(const LogDir& dir)
{
    std::string text;
    for (int i = 0; i < 50; ++i)
        text += "[S]\nn=1\n";
    WriteFile(dir.File("p.ini"), text);
}

bool WriteRepeated(const LogDir& dir)
{
    const std::string before = ReadFile(dir.File("p.ini"));
    const bool written =
        ZKQGeneral_WritePrivateProfileString("S", "n", std::string(100, 'w').c_str(), dir.File("p.ini").c_str());
    if (!written && support::ErrorText() == strerror(ENOMEM)) {
        EXPECT_EQ(ReadFile(dir.File("p.ini")), before) << "lost without need";
    }
    return written;
}

bool WriteKeyInMemory(const LogDir&)
{
    char* output = nullptr;
    int length = -1;
    const BOOL written = ZKQGeneral_WritePrivateProfileString_Mem("[S]\nk=1\n", "S", "k", "2", &output, &length);
    EXPECT_EQ(written == TRUE, length == 11);
    ZKQGeneral_FreeMallocBuffer(output);
    return written;
}

bool ReadKey(const LogDir& dir)
{
    char value[10];
    return ZKQGeneral_GetPrivateProfileString("S", "k", "default", value, sizeof value, dir.File("p.ini").c_str()) == 1;
}

bool Split(const LogDir&)
{
    int count = -1;
    char** tokens = ZKQGeneral_ParseLineInfo("a,b,c", ",", &count);
    EXPECT_EQ(count, tokens == nullptr ? 0 : 3);
    const bool complete = tokens != nullptr && tokens[0] != nullptr && tokens[1] != nullptr && tokens[2] != nullptr;
    ZKQGeneral_FreeParseLineInfoBuffer(tokens, count);
    return complete;
}

bool EncodeText(const LogDir&)
{
    const unsigned char bytes[] = "some bytes";
    char none = 0;
    char* text = &none;
    const BOOL encoded = ZKQGeneral_ConvertToBase64Ex(bytes, 10, &text, 4);
    EXPECT_EQ(text != nullptr, encoded == TRUE);
    ZKQGeneral_FreeMallocBuffer(text);
    return encoded;
}

bool DecodeText(const LogDir&)
{
    unsigned char none = 0;
    unsigned char* bytes = &none;
    int length = 7;
    const BOOL decoded = ZKQGeneral_ConvertFromBase64Ex("YWJj", &bytes, &length);
    EXPECT_EQ(bytes != nullptr, decoded == TRUE);
    EXPECT_EQ(length, decoded ? 3 : 0);
    ZKQGeneral_FreeMallocBuffer(bytes);
    return decoded;
}

bool DigestSource(const LogDir& dir)
{
    unsigned char digest[16] = {};
    const BOOL digested = ZKQGeneral_DigestFile(dir.File("src").c_str(), digest);
    const unsigned char none[16] = {};
    EXPECT_EQ(memcmp(digest, none, sizeof none) != 0, digested == TRUE) << "left alone on failure";
    return digested;
}

bool Collect(const LogDir&)
{
    void* object = ZKQGeneral_MEM_malloc(16);
    unsigned char data[100] = "data";
    bool complete = object != nullptr && ZKQGeneral_MEM_Write(object, data, 10) == 10;
    // Twice what is needed may fail as long as what is needed can be had.
    complete = complete && ZKQGeneral_MEM_Write(object, data, 100) == 100;
    unsigned char* taken = nullptr;
    int size = -1;
    ZKQGeneral_MEM_Detach(object, &taken, &size);
    EXPECT_TRUE(!complete || (size == 110 && memcmp(taken, data, 10) == 0 && memcmp(taken + 10, data, 100) == 0));
    ZKQGeneral_FreeMallocBuffer(taken);
    ZKQGeneral_MEM_free(object);
    return complete;
}

/// A packet that grows and is read back, then one from its bytes.
bool BuildPacket(const LogDir&)
{
    void* packet = nullptr;
    if (!ZKQGeneral_CreateMsgPacket(16, &packet))
        return false;
    const std::string value(1000, 'v');
    bool complete = ZKQGeneral_MsgPacket_OID_AddInt(packet, 1, 2) != 0;
    complete = complete && ZKQGeneral_MsgPacket_OID_AddString(packet, 3, value.c_str()) != 0;
    unsigned char* bytes = nullptr;
    int size = 0;
    void* copy = nullptr;
    EXPECT_TRUE(ZKQGeneral_MsgPacket_GetBuffer(packet, &bytes, &size));
    complete = complete && ZKQGeneral_InitMsgPacket(bytes, size, 16, &copy) != 0;
    char* text = nullptr;
    EXPECT_TRUE(!complete || (ZKQGeneral_MsgPacket_OID_GetStringPtr(copy, 3, &text) && text == value));
    ZKQGeneral_DestroyMsgPacket(packet);
    ZKQGeneral_DestroyMsgPacket(copy);
    return complete;
}

/// A text too long for the stack, with a character that the tables leave to the system's converter.
bool ConvertLongText(const LogDir&)
{
    CloseConverters();
    const std::string text = std::string(5000, 'x') + "\xF3\xA0\x80\x81";
    std::string room(text.size(), '\0');
    int length = static_cast<int>(room.size());
    const BOOL converted = ZKQGeneral_UTF8ToAnsi(text.c_str(), room.data(), length, &length);
    EXPECT_EQ(length, converted ? 5000 : 5004);
    EXPECT_EQ(room, converted ? std::string(5000, 'x') + std::string(4, '\0') : std::string(5004, '\0'));
    return converted;
}

bool MakeContext(const LogDir& dir)
{
    support::AppInfo info(dir, 2);
    void* ctx = nullptr;
    const BOOL made = ZKQGeneral_IsNeedLogFile(&info, &ctx);
    EXPECT_EQ(ctx != nullptr, made == TRUE);
    ZKQGeneral_FreeLogCtx(ctx);
    return made;
}

void AllOn(const LogDir& dir)
{
    dir.Switch("server", 15);
    dir.Switch("allapp", 15);
    dir.Switch("allapp2", 15);
}

/// Records of each kind; what a log cannot take is lost in silence, and only the last log tells.
bool WriteRecords(const LogDir& dir)
{
    support::AppInfo info(dir, 2);
    info.MaxFileLength = 1000000;
    void* ctx = nullptr;
    if (!ZKQGeneral_IsNeedLogFile(&info, &ctx))
        return false;
    bool written = ZKQGeneral_RecordLogInfoEx(ctx, 8, "a.c", 1, "text");
    written &= ZKQGeneral_RecordLogInfoEx(ctx, 8, "a.c", 1, std::string(5000, 'l').c_str()) != 0;
    written &= ZKQGeneral_RecordAppLogToFileEx_V(ctx, 8, "%d", 1) != 0;
    written &= ZKQGeneral_RecordBinaryLogInfo(ctx, nullptr, 0, "dump") != 0;
    ZKQGeneral_FreeLogCtx(ctx);
    return written;
}

// Compression. Only the functions that allocate can lack memory, and then there is no text.

const std::string kPlain = "plain text, plain text, " + std::string(20000, 'p');

const unsigned char* Bytes(const std::string& text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

std::string Stream()
{
    const fault::Pause making;
    return support::Deflated(kPlain);
}

bool Compress(const LogDir&)
{
    std::string room(100000, '\0');
    long length = 0;
    const BOOL done = ZKQGeneral_Zlib_CompressBuffer(Bytes(kPlain), static_cast<long>(kPlain.size()),
                                                     reinterpret_cast<unsigned char*>(room.data()), &length);
    const fault::Pause judging;
    EXPECT_TRUE(!done || support::Inflated(room.substr(0, static_cast<size_t>(length))) == kPlain);
    return done;
}

bool Decompress(const LogDir&)
{
    const std::string stream = Stream();
    std::string room(kPlain.size(), '\0');
    const BOOL done =
        ZKQGeneral_Zlib_UnCompressBuffer(Bytes(stream), static_cast<long>(stream.size()),
                                         reinterpret_cast<unsigned char*>(room.data()), static_cast<long>(room.size()));
    EXPECT_TRUE(!done || room == kPlain);
    return done;
}

/// Calls a function that allocates; a failure leaves the pointer as it was.
bool Allocating(int (*function)(const unsigned char*, long, unsigned char**, long*), const std::string& source,
                const std::string& expected)
{
    unsigned char mark = 'm';
    unsigned char* data = &mark;
    long length = 0;
    const int code = function(Bytes(source), static_cast<long>(source.size()), &data, &length);
    if (code != 0) {
        EXPECT_TRUE(code == 12 || (code == -1 && function == ZKQGeneral_Zlib_CompressBufferEx)) << code;
        EXPECT_EQ(data, &mark);
        return false;
    }
    const fault::Pause judging;
    const std::string result(reinterpret_cast<char*>(data), static_cast<size_t>(length));
    EXPECT_TRUE(result == expected || support::Inflated(result) == expected);
    ZKQGeneral_FreeMallocBuffer(data);
    return true;
}

bool CompressAllocating(const LogDir&)
{
    return Allocating(ZKQGeneral_Zlib_CompressBufferEx, kPlain, kPlain);
}

bool DecompressAllocating(const LogDir&)
{
    return Allocating(ZKQGeneral_Zlib_UnCompressBufferEx, Stream(), kPlain);
}

// Cabinets.

void Tree(const LogDir& dir)
{
    ZKQGeneral_CreateMultiLevelDirectory(dir.File("tree/sub/deep").c_str());
    WriteFile(dir.File("tree/a"), "a");
    WriteFile(dir.File("tree/sub/b"), std::string(50000, 'b'));
    WriteFile(dir.File("tree/sub/deep/c"), "c");
    WriteFile(dir.File("named"), "named");
}

bool MakeCabinet(const LogDir& dir)
{
    const support::NoTempFiles watch;
    std::string list = dir.File("tree") + '\0' + dir.File("named") + '\0';
    list += '\0';
    const std::string cabinet = dir.File("cabinet");
    const BOOL made = ZKQGeneral_MakeMyCabFile(cabinet.c_str(), list.c_str(), 1);
    const fault::Pause judging;
    EXPECT_EQ(made == TRUE, access(cabinet.c_str(), F_OK) == 0) << "a part is left, or nothing";
    if (made) {
        EXPECT_EQ(support::CabinetReader(ReadFile(cabinet)).Members().size(), 4U);
    }
    return made;
}

void PackedTree(const LogDir& dir)
{
    const support::Cabinet cabinet{.entries = {{.name = "a", .content = "new"},
                                               {.name = "sub/b", .content = std::string(50000, 'b')},
                                               {.name = "sub/deep/c", .content = "c"}}};
    WriteFile(dir.File("cabinet"), cabinet.Bytes());
    ZKQGeneral_CreateMultiLevelDirectory(dir.File("out").c_str());
    WriteFile(dir.File("out/a"), "an older file");
}

bool ExtractCabinet(const LogDir& dir)
{
    const support::NoTempFiles watch;
    const BOOL done = ZKQGeneral_ExtractMyCabAllFile(dir.File("cabinet").c_str(), dir.File("out").c_str());
    if (done) {
        EXPECT_EQ(ReadFile(dir.File("out/a")), "new");
        EXPECT_EQ(ReadFile(dir.File("out/sub/b")), std::string(50000, 'b'));
        EXPECT_EQ(ReadFile(dir.File("out/sub/deep/c")), "c");
    }
    return done;
}

bool ExtractOne(const LogDir& dir)
{
    const support::NoTempFiles watch;
    char name[300];
    const std::string directory = dir.File("new");
    strcpy(name, directory.c_str());
    const BOOL done = ZKQGeneral_ExtractMyCabOneFile(dir.File("cabinet").c_str(), name, 1);
    EXPECT_EQ(name, done ? directory + "/sub/b" : directory);
    return done;
}

std::string ManyAttributes()
{
    std::string text = "<r";
    for (int i = 0; i < 40; ++i)
        text += " a" + std::to_string(i) + "='1'";
    text += ">";
    for (int i = 0; i < 200; ++i)
        text += "<n>x</n>";
    return text + "</r>";
}

/// What memory there was for is read; the rest is missing, and nothing of it is half made.
bool ReadXml(const LogDir&)
{
    static const std::string text = ManyAttributes();
    void* xml = nullptr;
    EXPECT_EQ(WQXXML_LoadFromString(text.c_str(), &xml), 0);
    support::XmlDocument document;
    document.xml = xml;
    int attributes = 0;
    int children = 0;
    if (const support::XmlNode* const root = document.Root()) {
        for (const support::XmlAttribute* attribute = root->attributes; attribute != nullptr;
             attribute = attribute->next, ++attributes)
            EXPECT_EQ(attribute->name, "a" + std::to_string(attributes));
        for (const support::XmlNode* node = root->child; node != nullptr; node = node->next, ++children)
            EXPECT_STREQ(node->value, "n");
    }
    return attributes == 40 && children == 200 && document.Root()->child->child != nullptr;
}

/// An addition or change that fails leaves the tree as it was.
bool EditXml(const LogDir&)
{
    support::XmlDocument document("<r a='1'><b>x</b></r>");
    if (document.xml == nullptr || document.Root()->child == nullptr || document.Root()->child->child == nullptr)
        return false;
    void* const root = document.xml;
    void* const child = document.Root()->child;
    const std::function<int()> edits[] = {[&] { return WQXXML_AddChildItem(&document.xml, "b", "n", "v"); },
                                          [&] { return WQXXML_AddChildItem(&document.xml, nullptr, "s", nullptr); },
                                          [&] { return WQXXML_AddNodeChildItem_Reverse(root, "f", "v", nullptr); },
                                          [&] { return WQXXML_AddNodeAttribute(root, "b", "2"); },
                                          [&] { return WQXXML_AddNodeAttribute(root, "a", "3"); },
                                          [&] { return WQXXML_ChangeAttribute(root, "b", "4"); },
                                          [&] { return WQXXML_ChangeNodeValue(root, "R"); },
                                          [&] { return WQXXML_ChangeElementValue(child, "new"); },
                                          [&] {
                                              void* xml = nullptr;
                                              const int error = WQXXML_AddChildItem(&xml, nullptr, "n", "v");
                                              EXPECT_EQ(xml == nullptr, error != 0);
                                              WQXXML_ReleaseObject(xml);
                                              return error;
                                          }};
    bool succeeded = true;
    for (const auto& edit : edits) {
        const std::string before = document.Text();
        if (const int error = edit()) {
            EXPECT_TRUE(error == ENOMEM || (error == ENOENT && !succeeded)) << error;
            EXPECT_EQ(document.Text(), before);
            succeeded = false;
        }
    }
    return succeeded;
}

/// Without memory for a remembered place, walks are as right.
bool WalkXml(const LogDir& dir)
{
    if (!ReadXml(dir))
        return false;
    support::XmlDocument document(ManyAttributes());
    bool succeeded = document.xml != nullptr && document.Root()->child != nullptr;
    const support::XmlNode* expected = succeeded ? document.Root()->child : nullptr;
    for (int i = 0; succeeded && i < 200; ++i, expected = expected == nullptr ? nullptr : expected->next) {
        void* node = nullptr;
        succeeded = WQXXML_GetChildNode(document.Root(), &i, &node) == 0;
        EXPECT_TRUE(!succeeded || node == expected);
    }
    return succeeded;
}

bool WriteXml(const LogDir& dir, bool toFile)
{
    static const support::XmlDocument document("<r>" + std::string(100000, 'x') + "</r>");
    static const std::string expected = "<?xml version=\"1\"?>\n" + document.Output();
    if (toFile) {
        const int error = WQXXML_OutputFile(document.xml, "1", nullptr, nullptr, dir.File("x").c_str());
        EXPECT_TRUE(error == 0 || error == ENOSYS) << error;
        EXPECT_TRUE(error != 0 || ReadFile(dir.File("x")) == expected);
        return error == 0;
    }
    char mark;
    char* text = &mark;
    const int error = WQXXML_OutputStringEx(document.xml, "1", nullptr, nullptr, &text);
    EXPECT_TRUE(error == 0 ? text == expected : error == ENOMEM && text == &mark) << error;
    if (error == 0)
        WQXXML_FreeString(text);
    return error == 0;
}

/// A table that cannot grow goes on with the buckets it has.
bool FillTable(const LogDir&)
{
    char mark;
    void* table = &mark;
    if (const int error = General_Table_Create(&table, 2, 1)) {
        EXPECT_TRUE(error == ENOMEM && table == &mark);
        return false;
    }
    bool succeeded = true;
    char bytes[] = "bytes";
    for (int i = 0; i < 20; ++i) {
        const std::string key = std::to_string(i);
        const int error = General_Table_String_AddNode(table, key.c_str(), bytes, sizeof bytes);
        EXPECT_TRUE(error == 0 || error == ENOMEM);
        EXPECT_EQ(General_Table_String_GetNode(table, key.c_str(), nullptr, nullptr), error == 0 ? 0 : ENOENT);
        succeeded = succeeded && error == 0;
    }
    EXPECT_EQ(General_Table_Destroy(table), 0);
    return succeeded;
}

const std::vector<std::string> kEverything = fault::Functions();

INSTANTIATE_TEST_SUITE_P(
    Operations, Sweep,
    testing::Values(
        Scenario{"exists",
                 Source,
                 [](const LogDir& d) { return ZKQGeneral_IsFileExist(d.File("src").c_str()) != 0; },
                 {},
                 {}},
        Scenario{"temp_file",
                 [](const LogDir&) {},
                 [](const LogDir&) {
                     char name[300] = "";
                     const BOOL made = ZKQGeneral_MyCreateTempFile(name, "zkq", sizeof name);
                     EXPECT_EQ(made == TRUE, remove(name) == 0);
                     return made != 0;
                 },
                 {"close", "unlink"},
                 {}},
        Scenario{"make_directories",
                 [](const LogDir&) {},
                 [](const LogDir& d) { return ZKQGeneral_CreateMultiLevelDirectory(d.File("a/b/c").c_str()) != 0; },
                 // What cannot be looked at is made, and mkdir() has the last word.
                 {"lstat"},
                 {}},
        Scenario{"short_cut",
                 Source,
                 [](const LogDir& d) { return ZKQGeneral_CreateShortCut("src", nullptr, d.File("link").c_str()) != 0; },
                 {"unlink"},
                 {}},
        Scenario{"delete_tree",
                 [](const LogDir& d) {
                     ZKQGeneral_CreateMultiLevelDirectory(d.File("t/a/b").c_str());
                     WriteFile(d.File("t/a/f"), "x");
                 },
                 [](const LogDir& d) {
                     std::string name = d.File("t");
                     const BOOL deleted = ZKQGeneral_MyDeleteDirectory(Mutable(name));
                     return deleted && access(name.c_str(), F_OK) != 0;
                 },
                 {"close"},
                 {}},
        Scenario{"copy",
                 Source,
                 [](const LogDir& d) {
                     const BOOL copied = ZKQGeneral_CopyFile(d.File("src").c_str(), d.File("dst").c_str(), FALSE);
                     EXPECT_TRUE(!copied || ReadFile(d.File("src")) == ReadFile(d.File("dst")));
                     return copied != 0;
                 },
                 {"copy_file_range", "close", "fchmod"},
                 {"read", "write"}},
        Scenario{"read_file", Source, ReadAll, {"close"}, {}},
        Scenario{"write_file",
                 [](const LogDir&) {},
                 [](const LogDir& d) {
                     const std::string data(10000, 'd');
                     const BOOL written = ZKQGeneral_SetFileContent(
                         d.File("f").c_str(), reinterpret_cast<const unsigned char*>(data.data()), 10000);
                     EXPECT_TRUE(!written || ReadFile(d.File("f")) == data);
                     return written != 0;
                 },
                 {},
                 {}},
        Scenario{"executable_path",
                 [](const LogDir&) {},
                 [](const LogDir&) {
                     char path[300];
                     return ZKQGeneral_GetModuleFileName(nullptr, path, sizeof path) > 0;
                 },
                 {},
                 {}},
        Scenario{"mapped_path",
                 [](const LogDir&) {},
                 [](const LogDir&) {
                     char path[300];
                     return ZKQGeneral_GetModuleFileName2("fault_test", path) != 0;
                 },
                 {"close"},
                 {}},
        Scenario{"profile_read", Profile, ReadKey, {"close"}, {}},
        Scenario{"profile_write", Profile, WriteKey, {"close"}, {}},
        Scenario{"profile_write_repeated", Repeated, WriteRepeated, {"close"}, {}},
        Scenario{"profile_write_in_memory", [](const LogDir&) {}, WriteKeyInMemory, {}, {}},
        Scenario{"split", [](const LogDir&) {}, Split, {}, {"strndup"}},
        Scenario{"collect", [](const LogDir&) {}, Collect, {"calloc"}, kEverything},
        // Twice what is needed may fail as long as what is needed can be had.
        Scenario{"packet", [](const LogDir&) {}, BuildPacket, {"realloc"}, {}},
        Scenario{"convert_long_text", [](const LogDir&) {}, ConvertLongText, {}, {}},
        Scenario{"encode_base64", [](const LogDir&) {}, EncodeText, {}, {}},
        Scenario{"decode_base64", [](const LogDir&) {}, DecodeText, {}, {}},
        Scenario{"digest_file", Source, DigestSource, {"close"}, {}},
        Scenario{"log_context",
                 AllOn,
                 MakeContext,
                 {"malloc", "open", "read", "lstat", "fstat", "readlink", "fchmod", "close"},
                 {}},
        Scenario{"log_records", AllOn, WriteRecords, kEverything, kEverything},
        Scenario{"compress", [](const LogDir&) {}, Compress, {}, {}},
        Scenario{"decompress", [](const LogDir&) {}, Decompress, {}, {}},
        Scenario{"compress_allocating",
                 [](const LogDir&) {},
                 CompressAllocating,
                 {"calloc"},
                 {"malloc", "calloc", "realloc"}},
        Scenario{"decompress_allocating",
                 [](const LogDir&) {},
                 DecompressAllocating,
                 {"calloc"},
                 {"malloc", "calloc", "realloc"}},
        Scenario{"json_read", [](const LogDir&) {}, ReadJson, {}, {"malloc", "calloc", "realloc"}},
        Scenario{"json_write", [](const LogDir&) {}, WriteJson, {}, {"malloc", "realloc", "reallocarray"}},
        Scenario{"json_build", [](const LogDir&) {}, BuildJson, {}, {"malloc", "calloc", "reallocarray"}},
        Scenario{"json_bytes", [](const LogDir&) {}, JsonBytes, {}, {"malloc", "calloc"}},
        // An older cabinet that cannot be looked at is no cabinet yet.
        Scenario{"make_cabinet", Tree, MakeCabinet, {"close", "stat"}, {}},
        Scenario{"extract_cabinet", PackedTree, ExtractCabinet, {"close", "lstat"}, {}},
        Scenario{"extract_one", PackedTree, ExtractOne, {"close", "lstat"}, {}},
        Scenario{"xml_read", [](const LogDir&) {}, ReadXml, {}, kEverything},
        Scenario{"xml_edit", [](const LogDir&) {}, EditXml, {}, kEverything},
        Scenario{"xml_walk", [](const LogDir&) {}, WalkXml, {"calloc"}, kEverything},
        Scenario{"xml_write_text",
                 [](const LogDir& d) { WriteXml(d, false); },
                 [](const LogDir& d) { return WriteXml(d, false); },
                 {},
                 kEverything},
        Scenario{"xml_write_file",
                 [](const LogDir& d) { WriteXml(d, false); },
                 [](const LogDir& d) { return WriteXml(d, true); },
                 {},
                 kEverything},
        Scenario{"table", [](const LogDir&) {}, FillTable, {"calloc"}, kEverything},
        Scenario{"run_program",
                 [](const LogDir&) {},
                 [](const LogDir&) {
                     DWORD code = 1;
                     const BOOL ran = ZKQGeneral_WinExecFileAndGetRetCode("true", "x", TRUE, &code);
                     return ran && code == 0;
                 },
                 {"lstat"}, // the next directory may have it, too
                 {}},
        Scenario{"find_process",
                 [](const LogDir&) {},
                 [](const LogDir&) {
                     int running = 1;
                     return ZKQGeneral_IsApplicationRunning("no such program", &running) && running == 0;
                 },
                 {"openat", "read", "close"}, // of processes that end meanwhile
                 {}},
        Scenario{"instance",
                 [](const LogDir& d) { WriteFile(d.File("lock"), ""); },
                 [](const LogDir& d) { return !ZKQGeneral_DetectApplication("lock", d.Path().c_str()); },
                 {"flock", "close"}, // either unlocks it
                 {}},
        Scenario{"tick_count",
                 [](const LogDir&) { ZKQGeneral_GetTickCount(); },
                 [](const LogDir&) { return ZKQGeneral_GetTickCount() > 0; },
                 {},
                 kEverything},
        Scenario{"file_time",
                 [](const LogDir& d) { Source(d); },
                 [](const LogDir& d) {
                     _TIMESTRUCT time;
                     return ZKQGeneral_GetFileTimeInfo(d.File("src").c_str(), &time, 0) != 0;
                 },
                 {},
                 {}},
        Scenario{"append_line",
                 [](const LogDir&) {},
                 [](const LogDir& d) { return ZKQGeneral_RecordLogToFile_V(d.File("l").c_str(), "%d", 5) != 0; },
                 {},
                 {}}),
    [](const auto& row) { return row.param.name; });

/// Runs a scenario with every call of a function interrupted once, or moving only half of its bytes.
class Retry : public testing::TestWithParam<const char*> {};

TEST_P(Retry, InterruptedAndShortCallsGoOn)
{
    const std::string function = GetParam();
    const bool movesBytes = function == "read" || function == "write" || function == "writev";
    for (const bool isShort : {false, true}) {
        if (isShort && !movesBytes)
            continue;
        for (int call = 1; call < 12; ++call) {
            const LogDir dir;
            Source(dir);
            Profile(dir);
            AllOn(dir);
            support::AppInfo info(dir, 2);
            const support::LogContext ctx(info);
            const std::string longText(5000, 'l');
            fault::Arm(function, call, {EINTR, isShort});
            EXPECT_TRUE(ReadAll(dir));
            EXPECT_TRUE(WriteKey(dir));
            EXPECT_TRUE(ZKQGeneral_RecordLogInfoEx(ctx.Get(), 8, "a.c", 1, "text"));
            EXPECT_TRUE(ZKQGeneral_RecordLogInfoEx(ctx.Get(), 8, "a.c", 1, longText.c_str()));
            EXPECT_TRUE(ZKQGeneral_RecordLogToFile_V(dir.File("l").c_str(), "%d", 5));
            fault::Disarm();
            EXPECT_EQ(ReadFile(dir.OwnLog()), "[Error] text - a.c,1\n[Error] " + longText + " - a.c,1\n");
            EXPECT_EQ(ReadFile(dir.File("l")), "5\n");
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Calls, Retry, testing::Values("open", "read", "write", "writev", "flock"),
                         [](const auto& row) { return row.param; });

TEST(Ping, WithoutMemoryItSaysSoAndClosesItsSocket)
{
    if (!Network_PingHost("127.0.0.1", 56, 5, nullptr, nullptr))
        GTEST_SKIP() << "no ping here: " << ZKQGeneral_GetGeneralErrorInfo();
    support::MarkErrorText();
    const int before = fault::OpenDescriptors();
    fault::Arm("malloc", 1, {ENOMEM, false});
    EXPECT_FALSE(Network_PingHost("127.0.0.1", 56, 5, nullptr, nullptr));
    EXPECT_TRUE(fault::Disarm());
    EXPECT_STREQ(ZKQGeneral_GetGeneralErrorInfo(), strerror(ENOMEM));
    EXPECT_EQ(fault::OpenDescriptors(), before);
}

TEST(Copy, BlocksTakeOverWhereTheKernelDoesNotCopy)
{
    const LogDir dir;
    const std::string content(200001, 'c');
    WriteFile(dir.File("src"), content);
    fault::Arm("copy_file_range", 0, {EXDEV, false});
    EXPECT_TRUE(ZKQGeneral_CopyFile(dir.File("src").c_str(), dir.File("dst").c_str(), FALSE));
    EXPECT_TRUE(fault::Disarm());
    EXPECT_EQ(ReadFile(dir.File("dst")), content);
}

TEST(Copy, AFullDiskEndsItWithoutANewText)
{
    const LogDir dir;
    WriteFile(dir.File("src"), std::string(200001, 'c'));
    support::MarkErrorText();
    fault::Arm("copy_file_range", 0, {ENOSPC, false});
    const LogDir other;
    EXPECT_TRUE(ZKQGeneral_CopyFile(dir.File("src").c_str(), dir.File("dst").c_str(), FALSE));
    fault::Disarm();
    fault::Arm("write", 0, {ENOSPC, false});
    EXPECT_FALSE(ZKQGeneral_CopyFile(dir.File("src").c_str(), "/dev/full", FALSE));
    fault::Disarm();
    EXPECT_TRUE(support::ErrorTextIsMarked());
}

TEST(Copy, ADestinationThatCannotBeLookedAtIsNotOverwritten)
{
    const LogDir dir;
    WriteFile(dir.File("src"), "new");
    WriteFile(dir.File("dst"), "old");
    support::MarkErrorText();
    fault::Arm("lstat", 1, {EIO, false});
    EXPECT_FALSE(ZKQGeneral_CopyFile(dir.File("src").c_str(), dir.File("dst").c_str(), TRUE));
    EXPECT_TRUE(fault::Disarm());
    EXPECT_STREQ(ZKQGeneral_GetGeneralErrorInfo(), strerror(EIO));
    EXPECT_EQ(ReadFile(dir.File("dst")), "old");
}

TEST(Compression, TheCallersBuffersNeedNoMemory)
{
    const LogDir dir;
    for (const char* function : {"malloc", "calloc", "realloc"}) {
        fault::Arm(function, 0, {ENOMEM, false});
        EXPECT_TRUE(Compress(dir));
        EXPECT_TRUE(Decompress(dir));
        EXPECT_FALSE(fault::Disarm()) << function;
    }
}

TEST(Compression, SaysWhatZlibSays)
{
    const struct {
        const char* function;
        bool (*operation)(const LogDir&);
        const char* text;
    } rows[] = {{"deflateInit_", Compress, "insufficient memory"},
                {"deflateInit_", CompressAllocating, "insufficient memory"},
                {"deflate", Compress, "stream error"},
                {"deflate", CompressAllocating, "stream error"},
                {"inflateInit_", Decompress, "insufficient memory"},
                {"inflateInit_", DecompressAllocating, "insufficient memory"},
                {"inflate", Decompress, "insufficient memory"},
                {"inflate", DecompressAllocating, "insufficient memory"}};
    const LogDir dir;
    for (const auto& row : rows) {
        fault::Arm(row.function, 1, {EINVAL, false});
        EXPECT_FALSE(row.operation(dir));
        EXPECT_TRUE(fault::Disarm());
        EXPECT_EQ(support::ErrorText(), row.text) << row.function;
    }
}

TEST(Compression, TellsSettingUpFromCompressing)
{
    unsigned char* data = nullptr;
    long length = 0;
    fault::Arm("deflateInit_", 1, {EINVAL, false});
    EXPECT_EQ(ZKQGeneral_Zlib_CompressBufferEx(Bytes(kPlain), 100, &data, &length), 12);
    fault::Arm("deflate", 1, {EINVAL, false});
    EXPECT_EQ(ZKQGeneral_Zlib_CompressBufferEx(Bytes(kPlain), 100, &data, &length), -1);
    for (const char* function : {"malloc", "calloc"}) {
        support::MarkErrorText();
        fault::Arm(function, 1, {ENOMEM, false});
        EXPECT_EQ(ZKQGeneral_Zlib_CompressBufferEx(Bytes(kPlain), 100, &data, &length), 12) << function;
        EXPECT_TRUE(fault::Disarm());
        EXPECT_TRUE(support::ErrorTextIsMarked());
    }
    EXPECT_EQ(data, nullptr);
}

TEST(Cabinet, InterruptedAndShortCallsGoOn)
{
    for (const char* function : {"read", "write", "pread"}) {
        for (const bool isShort : {false, true}) {
            for (int call = 1; call < 12; ++call) {
                const LogDir dir;
                Tree(dir);
                PackedTree(dir);
                fault::Arm(function, call, {EINTR, isShort});
                EXPECT_TRUE(ExtractCabinet(dir)) << function << support::ErrorText();
                unlink(dir.File("cabinet").c_str());
                EXPECT_TRUE(MakeCabinet(dir)) << function << support::ErrorText();
                fault::Disarm();
            }
        }
    }
}

TEST(Cabinet, AFullDiskLeavesNone)
{
    for (const int call : {1, 2, 3}) {
        const LogDir dir;
        Tree(dir);
        fault::Arm("write", call, {ENOSPC, false});
        const bool made = MakeCabinet(dir);
        EXPECT_EQ(made, !fault::Disarm());
        EXPECT_TRUE(call > 1 || support::ErrorText() == strerror(ENOSPC));
    }
}

TEST(Cabinet, AMemberThatCannotBeReadLeavesAnOlderFile)
{
    const LogDir dir;
    PackedTree(dir);
    for (const char* function : {"pread", "inflate", "malloc"}) {
        fault::Arm(function, 0, {EIO, false});
        EXPECT_FALSE(ExtractCabinet(dir)) << function;
        EXPECT_TRUE(fault::Disarm());
        EXPECT_EQ(ReadFile(dir.File("out/a")), "an older file");
    }
}

/// What the library's own log says of an operation whose `call`th allocation fails, as UTF-8.
std::vector<std::string> JsonLogOf(const char* function, int call, int expected, const std::function<int()>& operation)
{
    const LogDir dir;
    support::AppInfo info(dir);
    info.bAlwaysLog = ZKQ_LOG_ALL;
    const support::LogContext ctx(info);
    LOGCTX* const saved = std::exchange(g_General_LogCtx, static_cast<LOGCTX*>(ctx.Get()));
    fault::Arm(function, call, {ENOMEM, false});
    const int code = operation();
    EXPECT_TRUE(fault::Disarm()) << function << " call " << call;
    EXPECT_EQ(code, expected) << function << " call " << call;
    g_General_LogCtx = saved;
    const std::string log = support::BareIconv("UTF-8", "GBK")(ReadFile(dir.OwnLog())).bytes;
    std::vector<std::string> lines;
    for (size_t at = 0; at < log.size(); at = log.find('\n', at) + 1)
        lines.push_back(log.substr(at + 8, log.find(" - json,", at) - at - 8));
    return lines;
}

TEST(Json, EveryAllocationHasItsMessage)
{
    const auto* const value = reinterpret_cast<const unsigned char*>("value");
    void* doc = nullptr;
    ASSERT_EQ(JSON_Misc_InitJSON(R"({"h":"00","b":"YWJj","l":[1],"o":{}})", &doc), 0);
    void* list = nullptr;
    ASSERT_EQ(JSON_Misc_GetChildNode(doc, "l", &list), 0);
    std::string many = ManyValues();
    void* out = nullptr;
    unsigned char* bytes = nullptr;
    int number = 0;
    size_t* nodes = nullptr;
    const std::string no_item = "为新的Json条目分配内存失败！";
    const struct {
        const char* function;
        int call;
        int code;
        std::function<int()> operation;
        std::vector<std::string> lines;
    } rows[] = {
        {"malloc", 1, -9, [&] { return JSON_Misc_InitJSON("{}", &out); }, {no_item, "JSon解析失败！"}},
        {"malloc", 2, -9, [&] { return JSON_Misc_InitJSON("{}", &out); }, {no_item, "JSon解析失败！"}},
        {"malloc", 3, -9, [&] { return JSON_Misc_InitJSON("{}", &out); }, {no_item, "JSon解析失败！"}},
        {"malloc", 4, -8, [&] { return JSON_Misc_InitJSON(many.c_str(), &out); }, {no_item, "JSon解析失败！"}},
        {"calloc", 1, -9, [&] { return JSON_Misc_InitJSON(nullptr, &out); }, {no_item, "创建新的JSon对象失败！"}},
        {"malloc", 1, -9, [&] { return JSON_Misc_SetString(doc, "x", "y"); }, {"为保存JSon节点名称分配内存失败！"}},
        {"calloc",
         1,
         -9,
         [&] { return JSON_Misc_SetString(doc, "x", "y"); },
         {no_item, "为创建JSon节点对象分配内存失败！"}},
        {"malloc", 2, -9, [&] { return JSON_Misc_SetString(doc, "x", "y"); }, {"为保存JSon节点值分配内存失败！"}},
        {"calloc",
         1,
         -9,
         [&] { return JSON_Misc_CreateObjectNode(list, &out); },
         {no_item, "为创建JSon节点对象分配内存失败！"}},
        {"malloc",
         1,
         -9,
         [&] { return JSON_Misc_SetHexData(doc, "o", value, 5); },
         {"转换字节数组为Hex数据时分配内存失败！"}},
        {"malloc",
         1,
         -9,
         [&] { return JSON_Misc_SetHexArray(list, value, 5); },
         {"转换字节数组为Hex数据时分配内存失败！"}},
        {"malloc",
         1,
         -9,
         [&] { return JSON_Misc_SetB64Data(doc, "o", value, 5); },
         {"为字节数组做Base64转换时分配内存失败！"}},
        {"malloc",
         1,
         -9,
         [&] { return JSON_Misc_SetB64Array(list, value, 5); },
         {"为字节数组做Base64转换时分配内存失败！"}},
        {"malloc",
         1,
         -9,
         [&] { return JSON_Misc_GetHexData(doc, "h", &bytes, &number); },
         {"转换Hex数据为字节数组时分配内存失败！"}},
        {"malloc",
         1,
         -9,
         [&] { return JSON_Misc_GetB64Data(doc, "b", &bytes, &number); },
         {"为字节数组做Base64解码时分配内存失败！"}},
        {"reallocarray",
         1,
         -9,
         [&] { return JSON_Misc_GetArrayInfo(doc, "l", &number, &nodes); },
         {"为所有ARRAY类型节点分配内存失败！"}}};
    for (const auto& row : rows)
        EXPECT_EQ(JsonLogOf(row.function, row.call, row.code, row.operation), row.lines) << row.lines.back();
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(bytes, nullptr);
    EXPECT_EQ(nodes, nullptr);
    char* text = nullptr;
    EXPECT_EQ(JSON_Misc_FiniJSON(doc, &text), 0);
    EXPECT_EQ(std::string(text), "{\n\t\"h\":\"00\",\n\t\"b\":\"YWJj\",\n\t\"l\":[1],\n\t\"o\":{},\n\t\"x\":{}\n}")
        << "what a search has added stays";
    ZKQGeneral_FreeMallocBuffer(text);
}

TEST(MemoryObject, WhoseRoomCannotBeHadIsIgnoredByEveryOperation)
{
    fault::Arm("malloc", 1, {ENOMEM, false});
    void* object = ZKQGeneral_MEM_malloc(100);
    EXPECT_TRUE(fault::Disarm());
    ASSERT_NE(object, nullptr);
    unsigned char byte = 'x';
    unsigned char* data = &byte;
    int size = 42;
    EXPECT_EQ(ZKQGeneral_MEM_Write(object, &byte, 1), 0);
    EXPECT_EQ(ZKQGeneral_MEM_Read(object, &byte, 1), 0);
    EXPECT_EQ(ZKQGeneral_MEM_Detach(object, &data, &size), 0);
    EXPECT_EQ(data, &byte);
    EXPECT_EQ(size, 42);
    ZKQGeneral_MEM_free(object);
    ZKQGeneral_MEM_free(object);
}

TEST(Packet, EveryAllocationThatCannotBeDoneWithout)
{
    void* packet = nullptr;
    for (const char* function : {"calloc", "realloc"}) {
        fault::Arm(function, 0, {ENOMEM, false});
        EXPECT_FALSE(ZKQGeneral_CreateMsgPacket(0, &packet));
        EXPECT_TRUE(fault::Disarm());
        EXPECT_EQ(support::ErrorText(), strerror(ENOMEM));
        EXPECT_EQ(packet, nullptr);
    }
    fault::Arm("realloc", 1, {ENOMEM, false});
    EXPECT_TRUE(ZKQGeneral_CreateMsgPacket(0, &packet)) << "the room that is needed is less than the one asked for";
    EXPECT_TRUE(fault::Disarm());
    const std::string item(2000, 'i');
    fault::Arm("realloc", 0, {ENOMEM, false});
    EXPECT_FALSE(ZKQGeneral_MsgPacket_AddBuffer(packet, item.data(), 2000));
    fault::Disarm();
    EXPECT_EQ(support::ErrorText(), strerror(ENOMEM));
    int count = 0;
    EXPECT_TRUE(ZKQGeneral_MsgPacket_GetCount(packet, &count));
    EXPECT_EQ(count, 1) << "counted first";
    EXPECT_FALSE(ZKQGeneral_MsgPacket_GetData(packet, 0, nullptr, &count));
    EXPECT_EQ(support::ErrorText(), strerror(EBADMSG));
    ZKQGeneral_DestroyMsgPacket(packet);
}

TEST(Charset, AConverterThatCannotBeOpenedFailsEverything)
{
    for (const char* text : {"ascii", "\xD6\xD0"}) {
        CloseConverters();
        char out[16] = "before";
        int length = sizeof out;
        fault::Arm("iconv_open", 1, {EMFILE, false});
        EXPECT_FALSE(ZKQGeneral_AnsiToUTF8(text, out, 2, &length));
        EXPECT_TRUE(fault::Disarm());
        EXPECT_EQ(support::ErrorText(), strerror(EMFILE));
        EXPECT_STREQ(out, "before");
        EXPECT_EQ(length, 16);
        EXPECT_TRUE(ZKQGeneral_AnsiToUTF8(text, out, 2, &length)) << "and is tried again";
    }
}

TEST(Charset, TablesThatCannotBeFilledAreDoneWithout)
{
    char out[16];
    int length = sizeof out;
    CloseConverters();
    ASSERT_TRUE(ZKQGeneral_AnsiToUTF8("a", out, 1, &length));
    fault::Arm("iconv_open", 1, {EMFILE, false}); // the one that the row of this character would be filled with
    length = sizeof out;
    EXPECT_TRUE(ZKQGeneral_AnsiToUTF8("\x8B\x41", out, 2, &length));
    EXPECT_TRUE(fault::Disarm());
    EXPECT_EQ(std::string(out, static_cast<size_t>(length)), "婣");
    length = sizeof out;
    EXPECT_TRUE(ZKQGeneral_AnsiToUTF8("\x8B\x42", out, 2, &length));
    EXPECT_EQ(std::string(out, static_cast<size_t>(length)), "婤");
}

TEST(Splitter, LeavesATokenNullThatCannotBeCopied)
{
    fault::Arm("strndup", 2, {ENOMEM, false});
    int count = 0;
    char** tokens = ZKQGeneral_ParseLineInfo("a,b,c", ",", &count);
    EXPECT_TRUE(fault::Disarm());
    ASSERT_NE(tokens, nullptr);
    EXPECT_EQ(count, 3);
    EXPECT_STREQ(tokens[0], "a");
    EXPECT_EQ(tokens[1], nullptr);
    EXPECT_STREQ(tokens[2], "c");
    EXPECT_EQ(tokens[3], nullptr);
    ZKQGeneral_FreeParseLineInfoBuffer(tokens, count);
}

TEST(TempFile, SaysThatItCannotBeMade)
{
    char name[300];
    fault::Arm("open", 1, {EACCES, false});
    EXPECT_FALSE(ZKQGeneral_MyCreateTempFile(name, "zkq", sizeof name));
    fault::Disarm();
    EXPECT_EQ(support::ErrorText(), "Cann't create a unique tmpfile!");
    fault::Arm("open", 0, {EEXIST, false});
    EXPECT_FALSE(ZKQGeneral_MyCreateTempFile(name, "zkq", sizeof name)) << "after the last of its attempts";
    fault::Disarm();
    fault::Arm("open", 1, {EEXIST, false});
    EXPECT_TRUE(ZKQGeneral_MyCreateTempFile(name, "zkq", sizeof name)) << "a name that is taken is passed over";
    fault::Disarm();
    EXPECT_EQ(unlink(name), 0);
}

} // namespace

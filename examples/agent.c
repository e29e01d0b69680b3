/*
 * A small agent: it reads its settings from a profile file, watches a directory for a few rounds, and records what it
 * sees in a log whose levels an operator may switch while it runs. At the end it packs the files into a cabinet, and
 * makes sure of it: what comes out again must have the digests of what went in. It posts the cabinet to a server, which
 * must answer with the digest of what has arrived. What it saw last it keeps in an XML file, so that it tells what has
 * happened since it last ran. It tells its state in memory that it shares with whoever knows the key, takes an inventory
 * of its host, and only one agent works in a log directory.
 *
 *     agent SETTINGS.ini
 *
 * [agent]
 * directory = /var/spool/in    the directory to watch
 * log = /var/log/agent         where the log and its switches (tamor.ini) are; must exist
 * rounds = 5                   how many looks
 * interval = 500               milliseconds between them
 * ignore = .tmp .swp           endings of names that do not count
 * head = 32                    bytes of a changed file that are shown
 * archive = /var/spool/in.cab  the cabinet to make at the end; none if there is no such key
 * collector = http://host/in   where to post the cabinet; nowhere without this key
 * state = /var/lib/agent.xml   where it keeps what it saw last; nowhere without this key
 * status = 1515847681          key of a shared block with its state; the memory has the next one; none without this key
 * inventory = /var/lib/host    where it keeps the inventory, and compares it with the last one; none without this key
 * certificates = a.pem b.pem   certificates for the inventory
 * reporter = host:port         where to report the inventory; nowhere without this key
 */
#include "inventory.h"

#include <ZKQ_general.h>
#include <dirent.h>
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>

#define PATH_SIZE 300
#define DIGEST_SIZE 16
#define COLLECTOR_TIMEOUT 20 /* seconds */
#define HERE __FILE__, __LINE__

typedef struct {
    char directory[PATH_SIZE];
    char log[96];
    char archive[PATH_SIZE];
    char collector[PATH_SIZE];
    char state[PATH_SIZE];
    char inventory[PATH_SIZE];
    char certificates[4096];
    char reporter[PATH_SIZE];
    unsigned status;
    int rounds;
    int interval; /* milliseconds */
    int head;     /* bytes */
    char** ignore;
    int ignoreCount;
} Settings;

typedef struct {
    char name[256];
    long long size;
    struct timespec changed;
    int seen; /* the round that saw it last */
} WatchedFile;

typedef struct {
    WatchedFile* files;
    size_t count;
    size_t room;
    int isKnown;    /* files that are not in the list are new */
    int hasChanged; /* since the state was written */
} Watch;

static void* logContext;
static long shownLog;     /* bytes of the log that have been shown */
static void* sharedState; /* the shared block, or null */

/* Settings */

static int ReadSettings(const char* file, Settings* settings)
{
    char ignore[1024];
    if (!ZKQGeneral_IsFileExist(file))
        return 0;
    ZKQGeneral_GetPrivateProfileString("agent", "directory", ".", settings->directory, sizeof settings->directory,
                                       file);
    ZKQGeneral_GetPrivateProfileString("agent", "log", ".", settings->log, sizeof settings->log, file);
    ZKQGeneral_GetPrivateProfileString("agent", "archive", "", settings->archive, sizeof settings->archive, file);
    ZKQGeneral_GetPrivateProfileString("agent", "collector", "", settings->collector, sizeof settings->collector, file);
    ZKQGeneral_GetPrivateProfileString("agent", "ignore", "", ignore, sizeof ignore, file);
    ZKQGeneral_GetPrivateProfileString("agent", "state", "", settings->state, sizeof settings->state, file);
    ZKQGeneral_GetPrivateProfileString("agent", "inventory", "", settings->inventory, sizeof settings->inventory, file);
    ZKQGeneral_GetPrivateProfileString("agent", "certificates", "", settings->certificates,
                                       sizeof settings->certificates, file);
    ZKQGeneral_GetPrivateProfileString("agent", "reporter", "", settings->reporter, sizeof settings->reporter, file);
    settings->status = (unsigned)ZKQGeneral_GetPrivateProfileInt("agent", "status", 0, file);
    settings->rounds = (int)ZKQGeneral_GetPrivateProfileInt("agent", "rounds", 5, file);
    settings->interval = (int)ZKQGeneral_GetPrivateProfileInt("agent", "interval", 500, file);
    settings->head = (int)ZKQGeneral_GetPrivateProfileInt("agent", "head", 32, file);
    settings->ignore = ZKQGeneral_ParseLineInfo(ignore, " ,", &settings->ignoreCount);
    return settings->ignore != NULL;
}

static int OpenLog(Settings* settings)
{
    char project[] = "agent";
    APPLOGINFO info;
    memset(&info, 0, sizeof info);
    info.Version = 3;
    info.ProjectName = project;
    info.RecordTime = 1;
    info.MaxBinaryLength = settings->head;
    info.MaxFileLength = 10 * 1024 * 1024;
    info.TempPath = settings->log;
    return ZKQGeneral_IsNeedLogFile(&info, &logContext);
}

/* Watching */

static int IsIgnored(const Settings* settings, const char* name)
{
    const size_t length = strlen(name);
    if (name[0] == '.')
        return 1;
    for (int i = 0; i < settings->ignoreCount; ++i) {
        const size_t ending = strlen(settings->ignore[i]);
        if (ending <= length && strcmp(name + length - ending, settings->ignore[i]) == 0)
            return 1;
    }
    return 0;
}

static WatchedFile* Find(Watch* watch, const char* name)
{
    for (size_t i = 0; i < watch->count; ++i)
        if (strcmp(watch->files[i].name, name) == 0)
            return &watch->files[i];
    return NULL;
}

static WatchedFile* Add(Watch* watch, const char* name)
{
    if (watch->count == watch->room) {
        const size_t room = watch->room == 0 ? 64 : 2 * watch->room;
        WatchedFile* files = realloc(watch->files, room * sizeof *files);
        if (files == NULL)
            return NULL;
        watch->files = files;
        watch->room = room;
    }
    WatchedFile* file = &watch->files[watch->count++];
    memset(file, 0, sizeof *file);
    strncpy_WQX(file->name, name, sizeof file->name);
    return file;
}

/* State: <agent><file name="..." size="..." seconds="..." nanoseconds="..."/>...</agent> */

static void RecordXmlError(int error, const char* what, const char* file)
{
    char text[256];
    ZKQGeneral_RecordAppLogToFileEx2_V(logContext, ZKQ_LOG_ERROR, HERE, "cannot %s %s: %s", what, file,
                                       WQXXMLH_GetErrorInfo(error, text));
}

static long long Number(void* node, const char* attribute)
{
    char* text = NULL;
    return WQXXMLH_Iterate_GetAttribute(node, attribute, &text) == 0 ? strtoll(text, NULL, 10) : 0;
}

/* Reads what the last run has seen. Values come out of the file with their references decoded. */
static void ReadState(Watch* watch, const char* file)
{
    void *document, *walk, *node;
    char* name;
    int error;
    if (file[0] == '\0' || !ZKQGeneral_IsFileExist(file))
        return;
    error = WQXXMLH_Open(file, 0, &document);
    if (error != 0) {
        RecordXmlError(error, "read", file);
        return;
    }
    error = WQXXMLH_BeginIterate(document, "/agent", &walk);
    if (error == 0) {
        while (WQXXMLH_Iterate(walk, &node) == 0) {
            WatchedFile* seen = NULL;
            if (WQXXMLH_Iterate_GetAttribute(node, "name", &name) == 0 && Find(watch, name) == NULL)
                seen = Add(watch, name);
            if (seen == NULL)
                continue;
            seen->size = Number(node, "size");
            seen->changed.tv_sec = Number(node, "seconds");
            seen->changed.tv_nsec = (long)Number(node, "nanoseconds");
        }
        WQXXMLH_EndIterate(walk);
        watch->isKnown = 1;
    } else {
        RecordXmlError(error, "understand", file);
    }
    WQXXMLH_Close(document);
}

/* The library writes values as they are: what has a meaning in XML is put into references before. */
static void Escape(const char* text, char* output, size_t size)
{
    size_t used = 0;
    for (; *text != '\0' && used + 8 < size; ++text) {
        if (strchr("&<>\"", *text) != NULL || (unsigned char)*text < ' ')
            used += (size_t)snprintf(output + used, size - used, "&#%d;", (unsigned char)*text);
        else
            output[used++] = *text;
    }
    output[used] = '\0';
}

static int SetNumber(void* node, const char* attribute, long long number)
{
    char text[32];
    snprintf(text, sizeof text, "%lld", number);
    return WQXXMLH_AddElementAttribute(node, "/file", attribute, text);
}

static int AddFile(void* root, const WatchedFile* file)
{
    char name[sizeof file->name * 6 + 8];
    void* node;
    int error = WQXXML_AddNodeChildItem(root, "file", "", &node);
    Escape(file->name, name, sizeof name);
    if (error == 0)
        error = WQXXMLH_AddElementAttribute(node, "/file", "name", name);
    if (error == 0)
        error = SetNumber(node, "size", file->size);
    if (error == 0)
        error = SetNumber(node, "seconds", file->changed.tv_sec);
    return error != 0 ? error : SetNumber(node, "nanoseconds", file->changed.tv_nsec);
}

/* The state as a text, or null. */
static char* StateText(const Watch* watch, const char* file)
{
    void *document, *root;
    char* text = NULL;
    int error = WQXXMLH_Open2(NULL, 1, &document);
    if (error != 0)
        return NULL;
    error = WQXXMLH_Misc_GetNodeFromPath_AutoAdd(document, "/agent", &root);
    for (size_t i = 0; error == 0 && i < watch->count; ++i)
        error = AddFile(root, &watch->files[i]);
    if (error == 0)
        error = WQXXMLH_SetDeclaration(document, "1.0", "UTF-8", NULL);
    if (error != 0)
        RecordXmlError(error, "describe", file);
    WQXXMLH_Close2(document, error == 0 ? &text : NULL);
    return text;
}

/* Replaces the state as a whole, so that a crash leaves the old one. */
static void WriteState(Watch* watch, const char* file)
{
    char temporary[PATH_SIZE + 4];
    char* text;
    if (file[0] == '\0' || !watch->hasChanged || (text = StateText(watch, file)) == NULL)
        return;
    snprintf(temporary, sizeof temporary, "%s.new", file);
    if (!ZKQGeneral_SetFileContent(temporary, (const unsigned char*)text, (int)strlen(text)) ||
        rename(temporary, file) != 0)
        ZKQGeneral_RecordAppLogToFileEx2_V(logContext, ZKQ_LOG_ERROR, HERE, "cannot write %s", file);
    else
        watch->hasChanged = 0;
    WQXXMLH_FreeString(text);
}

/* Shows the first bytes of a file that has changed; the context cuts the dump to its `MaxBinaryLength`. */
static void DumpHead(const char* path, const char* name)
{
    unsigned char* content = NULL;
    int size = 0;
    if (!ZKQGeneral_GetFileContent(path, &content, &size)) {
        ZKQGeneral_RecordAppLogToFileEx2_V(logContext, ZKQ_LOG_ERROR, HERE, "cannot read %s: %s", name,
                                           ZKQGeneral_GetGeneralErrorInfo());
        return;
    }
    ZKQGeneral_RecordBinaryLogInfoEx2(logContext, ZKQ_LOG_INFO, content, size, HERE, "head of %s ", name);
    ZKQGeneral_FreeMallocBuffer(content);
}

static void Look(Watch* watch, const char* path, const char* name, int round)
{
    struct stat status;
    if (lstat(path, &status) != 0) {
        ZKQGeneral_RecordSystemErrorEx(logContext, ZKQ_LOG_ERROR, HERE, errno);
        return;
    }
    if (!S_ISREG(status.st_mode))
        return;
    WatchedFile* file = Find(watch, name);
    const int isNew = file == NULL;
    if (isNew && (file = Add(watch, name)) == NULL)
        return;
    const int hasChanged = !isNew && (file->size != status.st_size || file->changed.tv_sec != status.st_mtim.tv_sec ||
                                      file->changed.tv_nsec != status.st_mtim.tv_nsec);
    if (isNew && watch->isKnown)
        ZKQGeneral_RecordAppLogToFileEx2_V(logContext, ZKQ_LOG_INFO, HERE, "new: %s, %lld bytes", name,
                                           (long long)status.st_size);
    if (hasChanged)
        ZKQGeneral_RecordAppLogToFileEx2_V(logContext, ZKQ_LOG_WARN, HERE, "changed: %s, %lld to %lld bytes", name,
                                           file->size, (long long)status.st_size);
    watch->hasChanged |= isNew || hasChanged;
    file->size = status.st_size;
    file->changed = status.st_mtim;
    file->seen = round;
    if (hasChanged)
        DumpHead(path, name);
}

/* Drops what this round has not seen. */
static void DropVanished(Watch* watch, int round)
{
    size_t kept = 0;
    for (size_t i = 0; i < watch->count; ++i) {
        if (watch->files[i].seen == round)
            watch->files[kept++] = watch->files[i];
        else
            ZKQGeneral_RecordAppLogToFileEx2_V(logContext, ZKQ_LOG_ERROR, HERE, "gone: %s", watch->files[i].name);
    }
    watch->hasChanged |= kept < watch->count;
    watch->count = kept;
}

static int WatchOnce(Watch* watch, const Settings* settings, int round)
{
    DIR* directory = opendir(settings->directory);
    if (directory == NULL) {
        ZKQGeneral_RecordSystemErrorEx(logContext, ZKQ_LOG_ERROR, HERE, errno);
        return 0;
    }
    const struct dirent* entry;
    while ((entry = readdir(directory)) != NULL) {
        char path[PATH_SIZE + 257];
        snprintf(path, sizeof path, "%s/%s", settings->directory, entry->d_name);
        if (!IsIgnored(settings, entry->d_name))
            Look(watch, path, entry->d_name, round);
    }
    closedir(directory);
    DropVanished(watch, round);
    watch->isKnown = 1;
    ZKQGeneral_RecordAppLogToFileEx2_V(logContext, ZKQ_LOG_DEBUG, HERE, "round %d: %zu files", round, watch->count);
    return 1;
}

/* Packing */

/* What is being packed: as many names as files, each ended by a NUL, and the digests that they had. */
typedef struct {
    char* names;
    size_t length;
    size_t count;
    unsigned char (*digests)[DIGEST_SIZE];
} Pack;

static void* RecordProgress(void* percentage)
{
    ZKQGeneral_RecordAppLogToFileEx2_V(logContext, ZKQ_LOG_DEBUG, HERE, "packed: %d%%", (int)(intptr_t)percentage);
    return NULL;
}

static void RecordFailure(const char* what)
{
    ZKQGeneral_RecordAppLogToFileEx2_V(logContext, ZKQ_LOG_ERROR, HERE, "%s: %s", what,
                                       ZKQGeneral_GetGeneralErrorInfo());
}

/* Notes all files that a cabinet can hold, which are those that are not empty. */
static int Collect(const Settings* settings, const Watch* watch, Pack* pack)
{
    pack->names = calloc(watch->count + 1, PATH_SIZE);
    pack->digests = calloc(watch->count + 1, DIGEST_SIZE);
    if (pack->names == NULL || pack->digests == NULL)
        return 0;
    for (size_t i = 0; i < watch->count; ++i) {
        char* path = pack->names + pack->length;
        const int length = snprintf(path, PATH_SIZE, "%s/%s", settings->directory, watch->files[i].name);
        if (watch->files[i].size == 0 || length >= PATH_SIZE ||
            !ZKQGeneral_DigestFile(path, pack->digests[pack->count]))
            continue;
        pack->length += (size_t)length + 1;
        ++pack->count;
    }
    pack->names[pack->length] = '\0'; /* an empty name behind the last */
    return pack->count > 0;
}

/* Extracts the cabinet again; true if all files have the digests that were noted. */
static int Verify(const Settings* settings, const Pack* pack, const char* directory)
{
    int alike = 1;
    for (size_t i = 0; i < pack->count; ++i) {
        char path[PATH_SIZE];
        unsigned char digest[DIGEST_SIZE];
        strncpy_WQX(path, directory, sizeof path);
        if (!ZKQGeneral_ExtractMyCabOneFile(settings->archive, path, (long)i) || !ZKQGeneral_DigestFile(path, digest)) {
            RecordFailure("cannot extract");
            return 0;
        }
        if (memcmp(digest, pack->digests[i], sizeof digest) != 0) {
            ZKQGeneral_RecordAppLogToFileEx2_V(logContext, ZKQ_LOG_ERROR, HERE, "differs: %s", path);
            alike = 0;
        }
    }
    return alike;
}

static int PackFiles(const Settings* settings, const Watch* watch)
{
    char directory[PATH_SIZE + 8];
    Pack pack = {NULL, 0, 0, NULL};
    int done = Collect(settings, watch, &pack);
    if (done && !(done = ZKQGeneral_MakeMyCabFile_P(settings->archive, pack.names, 1, RecordProgress)))
        RecordFailure("cannot pack");
    if (done) {
        snprintf(directory, sizeof directory, "%s.check", settings->archive);
        done = Verify(settings, &pack, directory);
        ZKQGeneral_MyDeleteDirectory(directory);
    }
    if (done)
        ZKQGeneral_RecordAppLogToFileEx2_V(logContext, ZKQ_LOG_INFO, HERE, "%zu files are in %s, with their digests",
                                           pack.count, settings->archive);
    free(pack.names);
    free(pack.digests);
    return done;
}

/* Posting */

/* Posts the cabinet as a Base64 text, because a body ends with the first NUL. The answer is to be released. */
static char* Post(const Settings* settings)
{
    unsigned char* cabinet = NULL;
    char *text = NULL, *answer = NULL;
    int size = 0;
    if (!ZKQGeneral_GetFileContent(settings->archive, &cabinet, &size) ||
        !ZKQGeneral_ConvertToBase64Ex(cabinet, size, &text, 0))
        RecordFailure("cannot read the cabinet");
    else if (!Network_HttpSendReceive(settings->collector, text, "Content-Type: text/plain", &answer,
                                      COLLECTOR_TIMEOUT))
        RecordFailure("cannot post the cabinet");
    else if (answer == NULL)
        ZKQGeneral_RecordLogInfoEx(logContext, ZKQ_LOG_ERROR, HERE, "the collector has said nothing");
    ZKQGeneral_FreeMallocBuffer(cabinet);
    ZKQGeneral_FreeMallocBuffer(text);
    return answer;
}

/* The answer is {"stored": bytes, "md5": "digest"}; true if the digest is that of the cabinet. */
static int Confirms(const Settings* settings, const char* answer)
{
    unsigned char own[DIGEST_SIZE];
    unsigned char* digest = NULL;
    void* document;
    int size = 0, stored = 0, alike = 0;
    if (JSON_Misc_InitJSON(answer, &document) != 0) {
        ZKQGeneral_RecordLogInfoEx(logContext, ZKQ_LOG_ERROR, HERE, "the collector's answer is not JSON");
        return 0;
    }
    JSON_Misc_GetInt(document, "stored", &stored);
    JSON_Misc_GetHexData(document, "md5", &digest, &size);
    if (!ZKQGeneral_DigestFile(settings->archive, own))
        RecordFailure("cannot digest the cabinet");
    else if (digest == NULL || size != DIGEST_SIZE || memcmp(digest, own, DIGEST_SIZE) != 0)
        ZKQGeneral_RecordLogInfoEx(logContext, ZKQ_LOG_ERROR, HERE, "the collector has something else");
    else
        alike = 1;
    if (alike)
        ZKQGeneral_RecordAppLogToFileEx2_V(logContext, ZKQ_LOG_INFO, HERE,
                                           "the collector has stored %d bytes, with our digest", stored);
    ZKQGeneral_FreeMallocBuffer(digest);
    JSON_Misc_FiniJSON(document, NULL);
    return alike;
}

static int Deliver(const Settings* settings)
{
    char* answer = Post(settings);
    const int done = answer != NULL && Confirms(settings, answer);
    NetWork_FreeBuffer(answer);
    return done;
}

/* State for others */

#define STATUS_SIZE 4096

/* Makes the block, also if an agent that crashed has left one. */
static void OpenStatus(SHAREDBLOCK* block)
{
    const unsigned long key = block->SemName;
    ZKQGeneral_SysKillSemaphore(ZKQGeneral_SysConnectSemaphore(0, 0, (int)key));
    block->Size = STATUS_SIZE;
    block->ShmName = key + 1;
    if (!ZKQGeneral_ShbCreateBlock(block) || (sharedState = ZKQGeneral_ShbConnectBlock(block)) == NULL)
        RecordFailure("cannot share the state");
}

static void TellStatus(const char* format, ...)
{
    va_list arguments;
    char* text = sharedState == NULL ? NULL : ZKQGeneral_ShbLock(sharedState, 1);
    if (text == NULL)
        return;
    va_start(arguments, format);
    vsnprintf(text, STATUS_SIZE, format, arguments);
    va_end(arguments);
    ZKQGeneral_ShbUnlock(sharedState);
}

static void CloseStatus(SHAREDBLOCK* block)
{
    ZKQGeneral_ShbCloseBlock(sharedState);
    ZKQGeneral_ShbDestroyBlock(block);
    sharedState = NULL;
}

/* The host */

static int LookAtHost(const Settings* settings)
{
    char work[PATH_SIZE + 8];
    INVENTORY inventory;
    snprintf(work, sizeof work, "%s.tmp", settings->inventory);
    const int done = TakeInventory(logContext, settings->certificates, work, &inventory) &&
                     CompareAndSave(logContext, &inventory, settings->inventory) &&
                     (settings->reporter[0] == '\0' || Report(logContext, &inventory, settings->reporter));
    FreeInventory(&inventory);
    return done;
}

/* Shows what the log has grown by. */
static void ShowLog(void)
{
    char path[128];
    char block[4096];
    size_t count;
    if (!ZKQGeneral_GetAppLogFile(logContext, path))
        return;
    FILE* log = fopen(path, "rb");
    if (log == NULL)
        return;
    fseek(log, shownLog, SEEK_SET);
    while ((count = fread(block, 1, sizeof block, log)) > 0)
        fwrite(block, 1, count, stdout);
    shownLog = ftell(log);
    fclose(log);
    fflush(stdout);
}

static int Run(Settings* settings)
{
    char self[PATH_SIZE + 1] = "";
    Watch watch = {NULL, 0, 0, 0, 0};
    int done = 1;
    ZKQGeneral_GetModuleFileName(NULL, self, PATH_SIZE);
    ZKQGeneral_RecordAppLogToFileEx2_V(logContext, ZKQ_LOG_INFO, HERE, "%s watches %s", self, settings->directory);
    ReadState(&watch, settings->state);
    for (int round = 1; done && round <= settings->rounds; ++round) {
        done = WatchOnce(&watch, settings, round);
        if (done)
            WriteState(&watch, settings->state);
        TellStatus("round %d of %d, %zu files", round, settings->rounds, watch.count);
        ShowLog();
        if (done && round < settings->rounds)
            ZKQGeneral_Sleep(settings->interval);
    }
    if (done && settings->inventory[0] != '\0')
        done = LookAtHost(settings);
    if (done && settings->archive[0] != '\0')
        done = PackFiles(settings, &watch) && (settings->collector[0] == '\0' || Deliver(settings));
    ZKQGeneral_RecordLogInfoEx(logContext, ZKQ_LOG_INFO, HERE, done ? "done" : "given up");
    ShowLog();
    free(watch.files);
    return done;
}

/* One agent for each log directory: the lock goes with the process. */
static int IsAlone(const Settings* settings)
{
    char path[PATH_SIZE];
    snprintf(path, sizeof path, "%s/agent.lock", settings->log);
    return (ZKQGeneral_IsFileExist(path) || ZKQGeneral_SetFileContent(path, (const unsigned char*)"\n", 1)) &&
           ZKQGeneral_SingleInstance("agent.lock", settings->log);
}

int main(int argc, char** argv)
{
    Settings settings;
    SHAREDBLOCK block = {0, 0, 0, -1, -1};
    if (argc != 2) {
        fprintf(stderr, "usage: %s SETTINGS.ini\n", argv[0]);
        return 2;
    }
    if (!ReadSettings(argv[1], &settings) || !OpenLog(&settings)) {
        fprintf(stderr, "%s: %s\n", argv[0], ZKQGeneral_GetGeneralErrorInfo());
        return 1;
    }
    int done = IsAlone(&settings);
    if (!done)
        fprintf(stderr, "%s: another agent is at work in %s\n", argv[0], settings.log);
    if (done && (block.SemName = settings.status) != 0)
        OpenStatus(&block);
    done = done && Run(&settings);
    if (block.SemName != 0)
        CloseStatus(&block);
    ZKQGeneral_FreeLogCtx(logContext);
    ZKQGeneral_FreeParseLineInfoBuffer(settings.ignore, settings.ignoreCount);
    return done ? 0 : 1;
}

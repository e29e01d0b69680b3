// zkq ipc: semaphores, shared memory, shared blocks.
#include <ZKQ_general/error.h>
#include <ZKQ_general/syncobject.h>
#include <errno.h>
#include <limits.h>
#include <pwd.h>
#include <stdio.h>
#include <sys/sem.h>

#include <fstream>
#include <map>
#include <sstream>

#include "charset.h"
#include "command_line.h"
#include "commands.h"
#include "failure.h"
#include "output.h"

namespace {

constexpr int kDoNotWait = -1;

struct Options {
    std::string key;
    std::string memoryKey;
    std::vector<std::string> command;
    int units = 1;
    unsigned size = 0;
    int timeout = 0;
    bool noWait = false;
    bool isIdentifier = false;
};

/// A number as C writes it, of which 32 bits count.
int Number(const std::string& text)
{
    size_t used = 0;
    long long number = LLONG_MAX;
    try {
        number = std::stoll(text, &used, 0);
    } catch (const std::exception&) {
    }
    if (used != text.size() || number < INT_MIN || number > UINT_MAX)
        throw CLI::ValidationError(text, "a number of 32 bits is needed");
    return static_cast<int>(number);
}

std::string KeyText(int key)
{
    char text[16];
    snprintf(text, sizeof text, "0x%08x", static_cast<unsigned>(key));
    return text;
}

std::string UserName(unsigned id)
{
    const passwd* const user = getpwuid(id);
    return user == nullptr ? std::to_string(id) : user->pw_name;
}

/// The lines of a table of the kernel, each by the names of its columns.
std::vector<std::map<std::string, std::string>> KernelTable(const std::string& path)
{
    std::ifstream file(path);
    std::string line;
    if (!std::getline(file, line))
        throw SystemFailure("cannot read " + path, errno);
    std::istringstream header(line);
    std::vector<std::string> names;
    for (std::string name; header >> name;)
        names.push_back(name);
    std::vector<std::map<std::string, std::string>> rows;
    while (std::getline(file, line)) {
        std::istringstream values(line);
        auto& row = rows.emplace_back();
        std::string value;
        for (size_t i = 0; i < names.size() && values >> value; ++i)
            row[names[i]] = value;
    }
    return rows;
}

/// What both kinds of objects have: key, identifier, owner, mode.
std::string Common(std::map<std::string, std::string>& row, const char* identifier)
{
    char text[80];
    snprintf(text, sizeof text, "%s  %10s  %-10s  %4s  ", KeyText(std::stoi(row["key"])).c_str(),
             row[identifier].c_str(), UserName(static_cast<unsigned>(std::stoul(row["uid"]))).c_str(),
             row["perms"].c_str());
    return text;
}

std::string Units(const std::map<std::string, std::string>& row)
{
    if (row.at("nsems") != "1")
        return row.at("nsems") + " semaphores";
    const int units = semctl(std::stoi(row.at("semid")), 0, GETVAL);
    return units < 0 ? "-" : std::to_string(units);
}

void ListSemaphores()
{
    auto rows = KernelTable("/proc/sysvipc/sem");
    PrintLine("Key                 ID  Owner       Mode  Units");
    for (auto& row : rows)
        PrintLine(Common(row, "semid") + Units(row));
}

void ListMemory()
{
    auto rows = KernelTable("/proc/sysvipc/shm");
    PrintLine("Key                 ID  Owner       Mode       Bytes  Attached");
    for (auto& row : rows) {
        char text[64];
        snprintf(text, sizeof text, "%10s  %8s", row["size"].c_str(), row["nattch"].c_str());
        PrintLine(Common(row, "shmid") + text);
    }
}

int Semaphore(const Options& options)
{
    const int number = Number(options.key);
    if (options.isIdentifier)
        return number;
    const int semaphore = ZKQGeneral_SysConnectSemaphore(0, 0, number);
    if (semaphore < 0)
        throw LibraryFailure("semaphore " + KeyText(number));
    return semaphore;
}

void CreateSemaphore(const Options& options)
{
    const int key = Number(options.key);
    const int semaphore = ZKQGeneral_SysCreateSemaphore(options.units, options.units, key);
    if (semaphore < 0)
        throw LibraryFailure("cannot create semaphore " + KeyText(key));
    PrintLine(std::to_string(semaphore));
}

void RemoveSemaphore(const Options& options)
{
    if (!ZKQGeneral_SysKillSemaphore(Semaphore(options)))
        throw LibraryFailure("cannot remove semaphore " + options.key);
}

int Timeout(const Options& options)
{
    return options.noWait ? kDoNotWait : options.timeout;
}

void LockSemaphore(const Options& options)
{
    const int semaphore = Semaphore(options);
    if (!ZKQGeneral_SysWaitSemaphore(semaphore, Timeout(options)))
        throw LibraryFailure("cannot lock semaphore " + options.key);
    const int status = RunAndWait(options.command);
    if (!ZKQGeneral_SysReleaseSemaphore(semaphore, 1))
        throw LibraryFailure("cannot unlock semaphore " + options.key);
    PassOn(options.command.front(), status);
}

void CreateMemory(const Options& options)
{
    const int key = Number(options.key);
    const int memory = ZKQGeneral_CreateSharedMemory(key, options.size);
    if (memory < 0)
        throw LibraryFailure("cannot create shared memory " + KeyText(key));
    PrintLine(std::to_string(memory));
}

void RemoveMemory(const Options& options)
{
    const int number = Number(options.key);
    const int memory = options.isIdentifier ? number : ZKQGeneral_ConnectSharedMemory(number, 0);
    if (memory < 0)
        throw LibraryFailure("shared memory " + KeyText(number));
    if (!ZKQGeneral_KillSharedMemory(memory))
        throw LibraryFailure("cannot remove shared memory " + options.key);
}

SHAREDBLOCK Block(const Options& options)
{
    SHAREDBLOCK block = {};
    block.Size = static_cast<int>(options.size);
    block.SemName = static_cast<unsigned>(Number(options.key));
    block.ShmName = static_cast<unsigned>(Number(options.memoryKey));
    block.SemID = block.ShmID = -1;
    return block;
}

std::string BlockName(const Options& options)
{
    return "block " + KeyText(Number(options.key)) + " " + KeyText(Number(options.memoryKey));
}

void CreateBlock(const Options& options)
{
    SHAREDBLOCK block = Block(options);
    const std::string name = BlockName(options);
    if (ZKQGeneral_ShbCreateBlock(&block)) {
        PrintLine(std::to_string(block.SemID) + " " + std::to_string(block.ShmID));
        return;
    }
    const std::string reason = ToTerminal(ZKQGeneral_GetGeneralErrorInfo());
    ZKQGeneral_ShbDestroyBlock(&block); // what there is of it would be in the way the next time
    throw Failure("cannot create " + name, reason);
}

/// A handle that is closed in the end.
using BlockHandle = std::unique_ptr<void, void (*)(void*)>;

BlockHandle Connect(const Options& options, SHAREDBLOCK* block)
{
    BlockHandle handle(ZKQGeneral_ShbConnectBlock(block), ZKQGeneral_ShbCloseBlock);
    if (handle == nullptr)
        throw LibraryFailure(BlockName(options));
    return handle;
}

void RemoveBlock(const Options& options)
{
    SHAREDBLOCK block = Block(options);
    const BlockHandle handle = Connect(options, &block);
    ZKQGeneral_ShbDestroyBlock(&block);
    SHAREDBLOCK again = Block(options);
    if (BlockHandle(ZKQGeneral_ShbConnectBlock(&again), ZKQGeneral_ShbCloseBlock) != nullptr)
        throw SystemFailure("cannot remove " + BlockName(options), EPERM);
}

void LockBlock(const Options& options)
{
    SHAREDBLOCK block = Block(options);
    const BlockHandle handle = Connect(options, &block);
    if (ZKQGeneral_ShbLock(handle.get(), Timeout(options)) == nullptr)
        throw LibraryFailure("cannot lock " + BlockName(options));
    const int status = RunAndWait(options.command);
    ZKQGeneral_ShbUnlock(handle.get());
    PassOn(options.command.front(), status);
}

using Action = void (*)(const Options&);

CLI::App* AddCommand(CLI::App* group, const char* name, const char* help, const std::shared_ptr<Options>& options,
                     Action action)
{
    CLI::App* command = group->add_subcommand(name, help);
    command->callback([options, action] { action(*options); });
    return command;
}

void AddKey(CLI::App* command, Options& options)
{
    command->add_option("KEY", options.key, "The key, such as 0x5a4b0001")->required()->type_name("");
}

void AddBlockKeys(CLI::App* command, Options& options)
{
    command->add_option("SEMKEY", options.key, "The key of the lock")->required()->type_name("");
    command->add_option("SHMKEY", options.memoryKey, "The key of the memory")->required()->type_name("");
}

void AddSize(CLI::App* command, Options& options)
{
    command->add_option("BYTES", options.size, "The size")
        ->required()
        ->type_name("")
        ->check(CLI::Range(1u, static_cast<unsigned>(INT_MAX)).description(""));
}

void AddIdentifier(CLI::App* command, Options& options)
{
    command->add_flag("--id", options.isIdentifier, "KEY is the identifier that \"ls\" shows");
}

/// What is run while something is locked, and how long to wait for that.
void AddProgram(CLI::App* command, Options& options)
{
    command
        ->add_option("PROGRAM", options.command, "The program and its arguments; put -- before it if any begins with -")
        ->required()
        ->type_name("");
    CLI::Option* timeout = command->add_option("--timeout", options.timeout, "Wait for the lock so many seconds")
                               ->type_name("SECONDS")
                               ->check(CLI::PositiveNumber);
    command->add_flag("--no-wait", options.noWait, "Fail if it is not free at once")->excludes(timeout);
}

CLI::App* AddObject(CLI::App* ipc, const char* name, const char* help)
{
    CLI::App* object = ipc->add_subcommand(name, help);
    object->require_subcommand(1);
    return object;
}

void AddSemaphore(CLI::App* ipc)
{
    CLI::App* sem = AddObject(ipc, "sem", "Semaphores");
    const auto options = std::make_shared<Options>();
    sem->add_subcommand("ls", "List all semaphores of the system")->callback(ListSemaphores);
    CLI::App* create =
        AddCommand(sem, "create", "Create a semaphore and print its identifier", options, CreateSemaphore);
    AddKey(create, *options);
    create->add_option("--units", options->units, "Units that it begins with; 1 by default")->type_name("NUMBER");
    CLI::App* remove =
        AddCommand(sem, "rm", "Remove a semaphore; whoever waits for it fails", options, RemoveSemaphore);
    AddKey(remove, *options);
    AddIdentifier(remove, *options);
    CLI::App* lock = AddCommand(sem, "lock", "Take a unit while a program runs", options, LockSemaphore);
    AddKey(lock, *options);
    AddIdentifier(lock, *options);
    AddProgram(lock, *options);
}

void AddMemory(CLI::App* ipc)
{
    CLI::App* shm = AddObject(ipc, "shm", "Shared memory");
    const auto options = std::make_shared<Options>();
    shm->add_subcommand("ls", "List all shared memory of the system")->callback(ListMemory);
    CLI::App* create = AddCommand(
        shm, "create", "Create memory, in place of what has the key, and print its identifier", options, CreateMemory);
    AddKey(create, *options);
    AddSize(create, *options);
    CLI::App* remove = AddCommand(shm, "rm", "Remove memory; it is gone with its last user", options, RemoveMemory);
    AddKey(remove, *options);
    AddIdentifier(remove, *options);
}

void AddBlock(CLI::App* ipc)
{
    CLI::App* block = AddObject(ipc, "block", "Shared blocks: memory with a lock");
    const auto options = std::make_shared<Options>();
    CLI::App* create = AddCommand(block, "create", "Create a block and print both identifiers", options, CreateBlock);
    AddBlockKeys(create, *options);
    AddSize(create, *options);
    AddBlockKeys(AddCommand(block, "rm", "Remove a block", options, RemoveBlock), *options);
    CLI::App* lock = AddCommand(block, "lock", "Lock a block while a program runs", options, LockBlock);
    AddBlockKeys(lock, *options);
    AddProgram(lock, *options);
}

} // namespace

void AddIpcCommands(CLI::App& app)
{
    CLI::App* ipc = app.add_subcommand("ipc", "Semaphores, shared memory and shared blocks by their keys");
    ipc->require_subcommand(1);
    AddSemaphore(ipc);
    AddMemory(ipc);
    AddBlock(ipc);
}

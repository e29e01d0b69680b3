/**
 * @file objects.hpp
 * @brief Owners of logs, packets, memory objects and shared blocks.
 */
#ifndef ZKQ_GENERAL_CPP_OBJECTS_HPP
#define ZKQ_GENERAL_CPP_OBJECTS_HPP

#include <ZKQ_general/cpp/basics.hpp>
#include <ZKQ_general/log.h>
#include <ZKQ_general/msgpacket.h>
#include <ZKQ_general/string.h>
#include <ZKQ_general/syncobject.h>
#include <errno.h>

#include <vector>

namespace zkq {

/**
 * A log context; see log.h. Any number of threads may record; opening, moving and releasing are one thread's. Formatted
 * records are written by the C functions with get(), so that the compiler checks their arguments.
 */
class Log : public Owner<Ref, &ZKQGeneral_FreeLogCtx> {
public:
    using Owner::Owner;

    /** @brief Opens a log; see ZKQGeneral_IsNeedLogFile(). @param info  Describes the program. @return The log. */
    static Result<Log> Open(const APPLOGINFO& info)
    {
        APPLOGINFO copy = info;
        void* context = nullptr;
        if (!ZKQGeneral_IsNeedLogFile(&copy, &context))
            return LastError();
        return Log(context);
    }
    /**
     * @brief Opens a log that is always on.
     * @param name       The program's name, at most 31 bytes.
     * @param directory  Where "name.log" lies, at most 95 bytes; null for "log" beside the working directory.
     * @param levels     The levels recorded.
     * @return The log.
     */
    static Result<Log> Always(const Text& name, const Text& directory, int levels = ZKQ_LOG_ALL)
    {
        APPLOGINFO info = APPLOGINFO();
        info.Version = 3;
        info.ProjectName = name.c_str();
        info.TempPath = directory.c_str();
        info.bAlwaysLog = levels;
        return Open(info);
    }

    /**
     * @brief Writes a record; see ZKQGeneral_RecordLogInfoEx().
     * @param level  ZKQ_LOG_DEBUG and so on.
     * @param file   Source file: `__FILE__`.
     * @param line   Source line: `__LINE__`.
     * @param text   The text.
     * @return `false` without a log, or if the second shared log is on and cannot be written.
     */
    bool Record(int level, const char* file, int line, const Text& text) const
    {
        return ZKQGeneral_RecordLogInfoEx(get(), level, file, line, text.c_str()) != FALSE;
    }
    /**
     * @brief Writes a hex dump; see ZKQGeneral_RecordBinaryLogInfoEx().
     * @param level  The level.
     * @param bytes  The bytes.
     * @param info   Text in front of their length.
     * @return As Record().
     */
    bool Dump(int level, Bytes bytes, const Text& info) const
    {
        return ZKQGeneral_RecordBinaryLogInfoEx(get(), level, bytes.data(), detail::Length(bytes.size()),
                                                info.c_str()) != FALSE;
    }
    /** @brief The own log's path. @return The path. */
    Result<std::string> Path() const
    {
        char path[128];
        if (!ZKQGeneral_GetAppLogFile(get(), path))
            return LastError();
        return std::string(path);
    }
    /** @brief Sets it; see ZKQGeneral_SetAppLogFile(). @param path  Path or name. @return Success, or the reason. */
    Result<> SetPath(const Text& path) { return detail::Done(ZKQGeneral_SetAppLogFile(get(), path.c_str())); }
};

/**
 * A message packet that grows; see msgpacket.h. One thread at a time, readers included. Views of items are good until the
 * next item is added.
 */
class Packet : public Owner<Ref, &ZKQGeneral_DestroyMsgPacket> {
public:
    using Owner::Owner;

    /** @brief Makes an empty packet. @param stepSize  Bytes by which it grows; 0 for 1024. @return The packet. */
    static Result<Packet> Make(int stepSize = 0)
    {
        void* packet = nullptr;
        if (!ZKQGeneral_CreateMsgPacket(stepSize, &packet))
            return LastError();
        return Packet(packet);
    }
    /** @brief Takes a received packet; see ZKQGeneral_InitMsgPacket(). @param bytes  Copied. @return The packet. */
    static Result<Packet> From(Bytes bytes)
    {
        void* packet = nullptr;
        if (!ZKQGeneral_InitMsgPacket(bytes.data(), detail::Length(bytes.size()), 0, &packet))
            return LastError();
        return Packet(packet);
    }

    /** @brief Appends an item. @param bytes  Its bytes. @return Success, or the reason. */
    Result<> Add(Bytes bytes)
    {
        return detail::Done(ZKQGeneral_MsgPacket_AddBuffer(get(), bytes.data(), detail::Length(bytes.size())));
    }
    /** @brief Appends an integer. @param number  The integer. @return Success, or the reason. */
    Result<> AddInt(int number) { return detail::Done(ZKQGeneral_MsgPacket_AddInt(get(), number)); }
    /** @brief Appends an OID and bytes. @param oid  The OID. @param bytes  The bytes. @return Success, or the reason. */
    Result<> AddOid(int oid, Bytes bytes)
    {
        return detail::Done(ZKQGeneral_MsgPacket_OID_AddBuffer(get(), oid, bytes.data(), detail::Length(bytes.size())));
    }
    /** @brief Appends an OID and a text. @param oid  The OID. @param text  The text. @return Success, or the reason. */
    Result<> AddOidText(int oid, const Text& text)
    {
        return detail::Done(ZKQGeneral_MsgPacket_OID_AddString(get(), oid, text.c_str()));
    }
    /** @brief Appends an OID and a number. @param oid  The OID. @param number  It. @return Success, or the reason. */
    Result<> AddOidInt(int oid, int number)
    {
        return detail::Done(ZKQGeneral_MsgPacket_OID_AddInt(get(), oid, number));
    }

    /** @brief The number of items. @return The number. */
    Result<int> Count() const
    {
        int count = 0;
        if (!ZKQGeneral_MsgPacket_GetCount(get(), &count))
            return LastError();
        return count;
    }
    /** @brief The whole packet as it is sent. @return A view. */
    Result<Bytes> Whole() const
    {
        unsigned char* bytes = nullptr;
        int size = 0;
        if (!ZKQGeneral_MsgPacket_GetBuffer(get(), &bytes, &size))
            return LastError();
        return Bytes(bytes, static_cast<std::size_t>(size));
    }
    /** @brief An item. @param index  Counted from 0. @return A view. */
    Result<Bytes> At(int index) const
    {
        void* bytes = nullptr;
        int size = 0;
        if (!ZKQGeneral_MsgPacket_GetDataPtr(get(), index, &bytes, &size))
            return LastError();
        return Bytes(bytes, static_cast<std::size_t>(size));
    }
    /** @brief An item that is a number. @param index  Counted from 0. @return The number. */
    Result<int> IntAt(int index) const
    {
        int number = 0;
        if (!ZKQGeneral_MsgPacket_GetIntegerData(get(), index, &number))
            return LastError();
        return number;
    }
    /** @brief The value of an OID. @param oid  The OID. @return A view. */
    Result<Bytes> Oid(int oid) const
    {
        void* bytes = nullptr;
        int size = 0;
        if (!ZKQGeneral_MsgPacket_OID_GetBufferPtr(get(), oid, &bytes, &size))
            return LastError();
        return Bytes(bytes, static_cast<std::size_t>(size));
    }
    /** @brief The text of an OID. @param oid  The OID. @return A view. */
    Result<std::string_view> OidText(int oid) const
    {
        char* text = nullptr;
        if (!ZKQGeneral_MsgPacket_OID_GetStringPtr(get(), oid, &text))
            return LastError();
        return std::string_view(text);
    }
    /** @brief The number of an OID. @param oid  The OID. @return The number. */
    Result<int> OidInt(int oid) const
    {
        int number = 0;
        if (!ZKQGeneral_MsgPacket_OID_GetInt(get(), oid, &number))
            return LastError();
        return number;
    }
    /** @brief All OIDs in their order. @return The OIDs. */
    Result<std::vector<int>> Oids() const
    {
        int count = 0;
        if (!ZKQGeneral_MsgPacket_OID_EnumOID(get(), nullptr, &count))
            return LastError();
        std::vector<int> oids(static_cast<std::size_t>(count) + 1); // an address even for none
        if (!ZKQGeneral_MsgPacket_OID_EnumOID(get(), oids.data(), &count))
            return LastError();
        oids.resize(static_cast<std::size_t>(count));
        return oids;
    }
};

/** A memory object: bytes are appended at its end and read from its start; see string.h. One thread at a time. */
class Memory : public Owner<Ref, &ZKQGeneral_MEM_free> {
public:
    using Owner::Owner;

    /** @brief Makes an empty object. @param room  Bytes to begin with; 0 for 4096. @return The object, or `ENOMEM`. */
    static Result<Memory> Make(int room = 0)
    {
        void* const object = ZKQGeneral_MEM_malloc(room);
        if (object == nullptr)
            return detail::SystemError(ENOMEM);
        return Memory(object);
    }

    /** @brief Appends bytes. @param bytes  The bytes. @return Success; `EINVAL` without an object, or `ENOMEM`. */
    Result<> Write(Bytes bytes)
    {
        const int size = detail::Length(bytes.size());
        if (size >= 0 && ZKQGeneral_MEM_Write(get(), bytes.data(), size) == size && get() != nullptr)
            return {};
        return detail::SystemError(get() == nullptr ? EINVAL : ENOMEM);
    }
    /** @brief Reads the next bytes. @param room  Receives them. @param most  Its size. @return Their number; 0 at the end. */
    std::size_t Read(void* room, std::size_t most)
    {
        const int size = most > static_cast<std::size_t>(INT_MAX) ? INT_MAX : static_cast<int>(most);
        return static_cast<std::size_t>(ZKQGeneral_MEM_Read(get(), static_cast<unsigned char*>(room), size));
    }
    /** @brief Takes all the object holds, without a copy, and leaves it empty. @return The bytes. */
    Buffer Take()
    {
        unsigned char* bytes = nullptr;
        int size = 0;
        ZKQGeneral_MEM_Detach(get(), &bytes, &size);
        return Buffer(bytes, static_cast<std::size_t>(size));
    }
};

/**
 * A connection to memory that processes share under a lock; see syncobject.h. The block itself stays in the system when
 * its connections are gone, until it is destroyed.
 */
class SharedBlock : public Owner<Ref, &ZKQGeneral_ShbCloseBlock> {
public:
    /** The lock, held as long as this lives, and the memory that it guards. */
    class Lock : public Owner<Ref, &ZKQGeneral_ShbUnlock> {
    public:
        /** No lock. */
        Lock() noexcept = default;
        /** @brief Takes a lock over. @param block  The block. @param data  Its memory. @param size  Its length. */
        Lock(void* block, void* data, std::size_t size) noexcept : Owner(block), data_(data), size_(size) {}
        /** @brief The memory, while the lock is held. @return Its address; null without a lock. */
        void* data() const noexcept { return handle_ == nullptr ? nullptr : data_; }
        /** @brief The length of the memory. @return Bytes; 0 without a lock. */
        std::size_t size() const noexcept { return handle_ == nullptr ? 0 : size_; }

    private:
        void* data_ = nullptr;
        std::size_t size_ = 0;
    };

    /** No connection. */
    SharedBlock() noexcept = default;

    /**
     * @brief Creates a block in the system and connects to it; see ZKQGeneral_ShbCreateBlock().
     *
     * What a failed creation had made is removed again.
     *
     * @param size       Bytes.
     * @param lockKey    Key of the lock; it must be free.
     * @param memoryKey  Key of the memory, which is replaced.
     * @return The connection.
     */
    static Result<SharedBlock> Create(int size, unsigned long lockKey, unsigned long memoryKey)
    {
        SHAREDBLOCK record = Record(size, lockKey, memoryKey);
        if (!ZKQGeneral_ShbCreateBlock(&record)) {
            Error error = LastError();
            ZKQGeneral_ShbDestroyBlock(&record);
            return error;
        }
        Result<SharedBlock> block = Connect(size, lockKey, memoryKey);
        if (!block)
            ZKQGeneral_ShbDestroyBlock(&record);
        return block;
    }
    /**
     * @brief Connects to a block; see ZKQGeneral_ShbConnectBlock().
     * @param size       Bytes that it has at least.
     * @param lockKey    Key of the lock.
     * @param memoryKey  Key of the memory.
     * @return The connection.
     */
    static Result<SharedBlock> Connect(int size, unsigned long lockKey, unsigned long memoryKey)
    {
        SharedBlock block;
        block.record_ = Record(size, lockKey, memoryKey);
        block.reset(ZKQGeneral_ShbConnectBlock(&block.record_));
        if (!block)
            return LastError();
        return block;
    }
    /**
     * @brief Takes the lock; see ZKQGeneral_ShbLock().
     * @param timeout  Seconds to wait; 0 waits without limit, a negative number not at all.
     * @return The lock, which must not outlive the connection.
     */
    Result<Lock> Acquire(int timeout = 0) const
    {
        void* const data = ZKQGeneral_ShbLock(get(), timeout);
        if (data == nullptr)
            return LastError();
        return Lock(get(), data, static_cast<std::size_t>(record_.Size));
    }
    /** @brief Removes the block from the system and closes the connection. Without one nothing is done. */
    void Destroy()
    {
        if (get() != nullptr)
            ZKQGeneral_ShbDestroyBlock(&record_);
        reset();
    }

private:
    static SHAREDBLOCK Record(int size, unsigned long lockKey, unsigned long memoryKey)
    {
        return {size, lockKey, memoryKey, -1, -1};
    }

    SHAREDBLOCK record_ = Record(0, 0, 0);
};

} // namespace zkq

#endif

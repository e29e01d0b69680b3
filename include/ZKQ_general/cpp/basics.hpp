/**
 * @file basics.hpp
 * @brief What the whole C++ layer is made of: texts and bytes as arguments, results, owners of handles and buffers.
 */
#ifndef ZKQ_GENERAL_CPP_BASICS_HPP
#define ZKQ_GENERAL_CPP_BASICS_HPP

#include <ZKQ_general/WQXXMLH.h>
#include <ZKQ_general/error.h>

#include <climits>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

/** The C++ layer over the C functions. */
namespace zkq {

/**
 * @brief A text on its way into a C function, which wants it terminated. For arguments only.
 *
 * A `const char*` and a `std::string` pass as they are; a `std::string_view`, whose end is not known to be a NUL, is
 * copied. C sees a text as far as its first NUL.
 */
class Text {
public:
    /**
     * @brief Passes a terminated text. @param text  It must live until the call ends; null means what the C function
     *        makes of null.
     */
    Text(const char* text) noexcept : text_(text) {}
    /** @brief Passes a string without a copy. @param text  It must live until the call ends. */
    Text(const std::string& text) noexcept : text_(text.c_str()) {}
    /** @brief Passes a copy of a text. @param text  The text. */
    Text(std::string_view text)
    {
        char* const copy = text.size() < sizeof small_ ? small_ : new char[text.size() + 1];
        large_.reset(copy == small_ ? nullptr : copy);
        text.copy(copy, text.size());
        copy[text.size()] = '\0';
        text_ = copy;
    }
    Text(const Text&) = delete;
    Text& operator=(const Text&) = delete;
    ~Text() = default;

    /** @brief The text for a C function. @return The text, which ends with a NUL, or the null that was passed. */
    const char* c_str() const noexcept { return text_; }

private:
    const char* text_;
    std::unique_ptr<char[]> large_;
    char small_[64]; // most names are shorter; left as it is until a view needs it
};

/**
 * @brief A view of bytes that belong to someone else: what C has as a pointer and a length.
 *
 * It is made from strings, string views, vectors, arrays, spans and whatever else has data() and size() of bytes, from
 * literals and arrays of `char` as far as their first NUL, and from a pointer and a length. One type for C++17 and C++20,
 * so that both may meet in one program.
 */
class Bytes {
    template <class Container>
    using ElementOf = std::remove_pointer_t<decltype(std::data(std::declval<const Container&>()))>;

public:
    /** No bytes. */
    constexpr Bytes() noexcept = default;
    /** @brief Views memory. @param data  The bytes; null only for none. @param size  Their number. */
    Bytes(const void* data, std::size_t size) noexcept : data_(static_cast<const unsigned char*>(data)), size_(size) {}
    /** @brief Views a text without its NUL. @param text  The text. */
    Bytes(std::string_view text) noexcept : Bytes(text.data(), text.size()) {}
    /** @brief Views an array of characters up to a NUL. @param text  The array, terminated or full. */
    template <std::size_t N>
    Bytes(const char (&text)[N]) noexcept : Bytes(text, strnlen(text, N))
    {}
    /** @brief Views an array of bytes. @param bytes  The array. */
    template <std::size_t N>
    Bytes(const unsigned char (&bytes)[N]) noexcept : Bytes(bytes, N)
    {}
    /** @brief Views what a container holds. @param container  Something with data() and size(), of bytes. */
    template <class Container,
              class = std::enable_if_t<sizeof(ElementOf<Container>) == 1 && !std::is_array_v<Container>>>
    Bytes(const Container& container) noexcept : Bytes(std::data(container), std::size(container))
    {}

    /** @brief The bytes. @return Their address; null only for none. */
    const unsigned char* data() const noexcept { return data_; }
    /** @brief How many there are. @return Their number. */
    std::size_t size() const noexcept { return size_; }
    /** @brief Whether there are none. @return `true` if so. */
    bool empty() const noexcept { return size_ == 0; }
    /** @brief For loops. @return The first. */
    const unsigned char* begin() const noexcept { return data_; }
    /** @brief For loops. @return Behind the last. */
    const unsigned char* end() const noexcept { return data_ + size_; }
    /** @brief One byte. @param index  Below size(). @return The byte. */
    unsigned char operator[](std::size_t index) const noexcept { return data_[index]; }
    /** @brief The same bytes as a text. @return A view. */
    std::string_view view() const noexcept { return {reinterpret_cast<const char*>(data_), size_}; }
    /** @brief A copy. @return A string. */
    std::string str() const { return std::string(view()); }

private:
    const unsigned char* data_ = nullptr;
    std::size_t size_ = 0;
};

/** Why a call has failed, taken when it failed: no later failure changes it. */
struct Error {
    int code = 0;     /**< What the C function returned; 0 where its family tells reasons by texts alone. */
    std::string text; /**< The reason; the library's own Chinese texts are GBK. */
};

/** @brief The reason of the failure just now, in families with an error text. @return The reason. */
[[gnu::cold, gnu::noinline]] inline Error LastError()
{
    return {0, ZKQGeneral_GetGeneralErrorInfo()};
}

/** @brief The reason that a result code stands for. @param code  The code, not 0. @return Code and text. */
[[gnu::cold, gnu::noinline]] inline Error CodeError(int code)
{
    char text[256];
    return {code, WQXXMLH_GetErrorInfo(code, text)};
}

/** What a call without a value has come to: success, or why not. Its name in use is `Result<>`. */
class [[nodiscard]] Outcome {
public:
    /** A success. */
    Outcome() noexcept = default;
    /** @brief A failure. @param error  The reason. */
    Outcome(Error error) : error_(std::make_unique<Error>(std::move(error))) {}

    /** @brief Whether the call succeeded. @return `true` if so. */
    bool ok() const noexcept { return error_ == nullptr; }
    /** @brief The same. @return `true` if the call succeeded. */
    explicit operator bool() const noexcept { return ok(); }
    /** @brief The reason of a failure, to be handed on. @return Code and text; 0 and "" for a success. */
    Error error() const { return ok() ? Error() : *error_; }
    /** @brief The code of a failure. @return As in Error; 0 for a success. */
    int code() const noexcept { return ok() ? 0 : error_->code; }
    /** @brief The text of a failure. @return The text, which lives as long as this; "" for a success. */
    const char* text() const noexcept { return ok() ? "" : error_->text.c_str(); }

private:
    std::unique_ptr<Error> error_;
};

/**
 * @brief The result of a call: a value, or why there is none.
 *
 * The value of a failed call is an empty one, so that using it is harmless: an owner without a handle, an empty string.
 * A success costs one pointer beside the value.
 * @tparam T  The value; nothing for a result without one.
 */
template <class T = void>
class [[nodiscard]] Result : public Outcome {
public:
    /** @brief A success. @param value  The value. */
    Result(T value) : value_(std::move(value)) {}
    /** @brief A failure, with an empty value. @param error  The reason. */
    Result(Error error) : Outcome(std::move(error)) {}

    /** @brief The value. @return The value; an empty one of a failed call. */
    T& value() & noexcept { return value_; }
    /** @brief The value. @return The value; an empty one of a failed call. */
    const T& value() const& noexcept { return value_; }
    /** @brief The value, moved out. @return The value; an empty one of a failed call. */
    T value() && { return std::move(value_); }
    /** @brief The value. @return The value; an empty one of a failed call. */
    T& operator*() & noexcept { return value_; }
    /** @brief The value. @return The value; an empty one of a failed call. */
    const T& operator*() const& noexcept { return value_; }
    /** @brief The value, moved out. @return The value; an empty one of a failed call. */
    T operator*() && { return std::move(value_); }
    /** @brief The value's members. @return The value; an empty one of a failed call. */
    T* operator->() noexcept { return &value_; }
    /** @brief The value's members. @return The value; an empty one of a failed call. */
    const T* operator->() const noexcept { return &value_; }
    /** @brief The value, or another. @param fallback  What a failed call is to give. @return One of the two. */
    T value_or(T fallback) && { return ok() ? std::move(value_) : std::move(fallback); }

private:
    T value_ = T();
};

/** The result of a call that gives nothing but success. */
template <>
class [[nodiscard]] Result<void> : public Outcome {
public:
    using Outcome::Outcome;
};

/** A C handle that belongs to someone else. */
class Ref {
public:
    /** No handle. */
    Ref() noexcept = default;
    /** @brief Refers to a handle. @param handle  The handle, or null for none. */
    explicit Ref(void* handle) noexcept : handle_(handle) {}
    /** @brief The handle for C functions. @return The handle; null if there is none. */
    void* get() const noexcept { return handle_; }
    /** @brief Whether there is a handle. @return `true` if so. */
    explicit operator bool() const noexcept { return handle_ != nullptr; }

protected:
    void* handle_ = nullptr; /**< The handle, or null. */
};

/**
 * @brief Owns a C handle: moved, never copied, released in the end.
 * @tparam Access   What can be done with the handle; Ref, or derived from it.
 * @tparam Release  The C function that releases it.
 */
template <class Access, auto Release>
class Owner : public Access {
public:
    /** Owns nothing. */
    Owner() noexcept = default;
    /** @brief Takes a handle over. @param handle  The handle, from now on released here; null for none. */
    explicit Owner(void* handle) noexcept { this->handle_ = handle; }
    /** @brief Takes over what another owns. @param other  The other; it is empty then. */
    Owner(Owner&& other) noexcept { this->handle_ = other.release(); }
    /** @brief Takes over what another owns. @param other  The other; empty then, unless it is this. @return This. */
    Owner& operator=(Owner&& other) noexcept
    {
        reset(other.release());
        return *this;
    }
    ~Owner() { reset(); }

    /** @brief Gives the handle up. @return The handle, the caller's to be released; null if there was none. */
    void* release() noexcept { return std::exchange(this->handle_, nullptr); }
    /** @brief Releases the handle and takes another. @param handle  The other; null for none. */
    void reset(void* handle = nullptr) noexcept
    {
        void* const old = std::exchange(this->handle_, handle);
        if (old != nullptr)
            static_cast<void>(Release(old));
    }
};

/** A buffer that the library has handed out, with its length. */
class Buffer : public Owner<Ref, &ZKQGeneral_FreeMallocBuffer> {
public:
    /** No buffer. */
    Buffer() noexcept = default;
    /** @brief Takes a buffer over. @param data  The buffer; null for none. @param size  Its length in bytes. */
    Buffer(void* data, std::size_t size) noexcept : Owner(data), size_(size) {}

    /** @brief The bytes. @return Their address; null if there is no buffer. */
    unsigned char* data() const noexcept { return static_cast<unsigned char*>(handle_); }
    /** @brief How many there are. @return Their number; 0 if there is no buffer. */
    std::size_t size() const noexcept { return handle_ == nullptr ? 0 : size_; }
    /** @brief Whether there are none. @return `true` if so. */
    bool empty() const noexcept { return size() == 0; }
    /** @brief The bytes as a text. @return A view. */
    std::string_view view() const noexcept { return {reinterpret_cast<const char*>(data()), size()}; }
    /** @brief A copy. @return A string. */
    std::string str() const { return std::string(view()); }

private:
    std::size_t size_ = 0;
};

/** What the layer's own functions share. */
namespace detail {

/** @brief A length for C. @param size  The length. @return It, or -1, which C functions refuse, if it is no `int`. */
constexpr int Length(std::size_t size) noexcept
{
    return size > static_cast<std::size_t>(INT_MAX) ? -1 : static_cast<int>(size);
}

/** @brief The reason that an errno value is. @param number  The value. @return Code and text. */
[[gnu::cold, gnu::noinline]] inline Error SystemError(int number)
{
    char text[256];
    ZKQGeneral_GetSystemErrorInfoString(number, text, sizeof text);
    return {number, text};
}

/** @brief What a `BOOL` tells. @param good  The result of the call just now. @return Success, or its reason. */
inline Result<> Done(BOOL good)
{
    if (good)
        return {};
    return LastError();
}

/** @brief What a code tells. @param code  The result of a call. @return Success, or its reason. */
inline Result<> DoneCode(int code)
{
    if (code == 0)
        return {};
    return CodeError(code);
}

/** @brief Hands out a buffer. @param buffer  The buffer. @return It, or a copy in a container of another type. */
template <class Out>
Out Give(Buffer buffer)
{
    if constexpr (std::is_same_v<Out, Buffer>) {
        return buffer;
    } else {
        const char* const first = reinterpret_cast<const char*>(buffer.data());
        return Out(first, first + buffer.size());
    }
}

} // namespace detail

} // namespace zkq

#endif

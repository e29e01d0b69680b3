#include <ZKQ_general/error.h>
#include <string.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "../fault/fault.h"
#include "strain.h"

namespace strain {

void Releaser::operator()(void* block) const
{
    ZKQGeneral_FreeMallocBuffer(block);
}

__attribute__((no_sanitize_thread)) std::string ReadErrorText()
{
    constexpr size_t kMost = 1000;
    const char* const text = ZKQGeneral_GetGeneralErrorInfo();
    char copy[kMost + 1] = {};
    for (size_t i = 0; i < kMost && text[i] != '\0'; ++i)
        copy[i] = text[i];
    return copy;
}

std::string ReadWhole(const std::string& path)
{
    const fault::Calm calm;
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void WriteWhole(const std::string& path, const std::string& content)
{
    const fault::Calm calm;
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    if (!out.flush().good())
        throw Wrong{"the program itself cannot write " + path};
}

Worker::Worker(Process& owner, int number, uint64_t seed)
    : process(owner), thread(number), random_(seed),
      directory_(owner.site.directory + "/p" + std::to_string(owner.number) + "t" + std::to_string(number))
{
    std::filesystem::create_directory(directory_);
}

std::string Worker::Bytes(size_t size)
{
    std::string bytes(size, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(random_());
    return bytes;
}

std::string Worker::Word(size_t size)
{
    constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
    std::string word(size, 'x');
    for (size_t i = 1; i < size; ++i) // begins with a letter
        word[i] = kLetters[random_() % (sizeof kLetters - 1)];
    return word;
}

int Worker::Key(int number) const
{
    return process.site.firstKey + (process.number * kThreads + thread) * kKeys + number;
}

unsigned Worker::Faults() const
{
    return faults_ == nullptr ? 0 : faults_->Hits();
}

void Worker::Must(bool succeeded, const char* what) const
{
    if (!succeeded)
        throw Refused{what};
}

void Worker::Right(bool right, const char* what) const
{
    if (!right)
        throw Wrong{what};
}

void Worker::RightUnlessFault(bool right, const char* what) const
{
    if (right)
        return;
    if (Faults() > 0)
        throw Refused{what};
    throw Wrong{what};
}

Worker::Verdict Worker::Run(void (*operation)(Worker&), bool withFaults)
{
    constexpr unsigned kRarest = 9; // one call of 512
    Verdict verdict;
    if (withFaults) {
        owner_ = std::make_unique<fault::Random>(random_(), 2u << random_() % kRarest);
        faults_ = owner_.get();
    }
    try {
        operation(*this);
    } catch (const Refused& refused) {
        verdict.refused = true;
        verdict.what = refused.what;
    } catch (const Wrong& wrong) {
        verdict.wrong = true;
        verdict.what = wrong.what;
    }
    verdict.faults = Faults();
    if (verdict.refused && verdict.faults == 0) {
        verdict.wrong = true;
        verdict.what += " failed without a fault, the error text being \"" + ReadErrorText() + "\"";
    }
    faults_ = nullptr;
    owner_.reset();
    return verdict;
}

} // namespace strain

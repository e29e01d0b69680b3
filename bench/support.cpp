#include "support.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace {

class Scratch {
public:
    Scratch()
    {
        const char* parent = std::getenv("ZKQ_BENCH_DIR");
        path_ = std::string(parent != nullptr ? parent : ZKQ_BENCH_TMP) + "/run.XXXXXX";
        if (mkdtemp(path_.data()) == nullptr) {
            std::perror(path_.c_str());
            std::exit(EXIT_FAILURE);
        }
    }

    ~Scratch()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    const std::string& Path() const { return path_; }

private:
    std::string path_;
};

} // namespace

const std::string& ScratchDirectory()
{
    static const Scratch scratch;
    return scratch.Path();
}

std::string MakeNoise(std::size_t size)
{
    std::string noise(size, '\0');
    std::uint64_t value = 88172645463325252U;
    for (char& byte : noise) {
        value ^= value << 13;
        value ^= value >> 7;
        value ^= value << 17;
        byte = static_cast<char>(value & 0xFF);
    }
    return noise;
}

// Profile texts against two parsers, and against the copying that a new text costs.
#include <ZKQ_general/error.h>
#include <ZKQ_general/inifile.h>
#include <benchmark/benchmark.h>

#include <glib.h>
#include <ini.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

namespace {

constexpr int kKeysPerSection = 20;
constexpr char kKeyName[] = "session_store"; // the last key of every section
constexpr std::size_t kValueRoom = 256;

struct Profile {
    std::string text;
    std::string lastSection;
    std::string lastValue;
};

// A server's settings: names, numbers, addresses, paths and an occasional sentence, 3 to 80 bytes. Nothing that one of
// the parsers would read in its own way: no ";", ":" or "\" and no tab.
constexpr const char* kKeys[kKeysPerSection] = {
    "enabled",       "listen_address",  "listen_port", "document_root", "access_log",
    "error_log",     "log_level",       "max_clients", "timeout",       "keepalive",
    "user",          "group",           "certificate", "private_key",   "trusted_issuer",
    "allowed_hosts", "welcome_message", "cache_size",  "backend_node",  kKeyName,
};
constexpr const char* kValues[kKeysPerSection] = {
    "yes",
    "192.0.2.",
    "80",
    "/srv/www/sites/production/",
    "/var/log/agent/access-",
    "/var/log/agent/error-",
    "information",
    "40",
    "30",
    "true",
    "www-data-",
    "www-data-",
    "/etc/agent/tls/certificates/server-",
    "/etc/agent/tls/private/server-",
    "C=XX, O=Example Trust Services, CN=Example Issuing Authority G",
    "alpha.example.org, beta.example.org, gamma.example.org, node",
    "This service is for authorised use only, all sessions are recorded, host ",
    "6553",
    "node-17.cluster.example.org/",
    "/var/lib/agent/sessions/",
};

Profile MakeProfile(std::size_t size)
{
    Profile profile;
    for (int section = 0; profile.text.size() < size; ++section) {
        const std::string number = std::to_string(section);
        profile.lastSection = "virtual_host_" + number;
        profile.text += "# settings of host " + number + "\n[" + profile.lastSection + "]\n";
        for (int key = 0; key < kKeysPerSection; ++key) {
            profile.lastValue = kValues[key] + number;
            profile.text += std::string(kKeys[key]) + " = " + profile.lastValue + "\n";
        }
        profile.text += "\n";
    }
    return profile;
}

const Profile& ProfileOf(const benchmark::State& state)
{
    static std::map<std::int64_t, Profile> profiles;
    Profile& profile = profiles[state.range(0)];
    if (profile.text.empty()) {
        profile = MakeProfile(static_cast<std::size_t>(state.range(0)));
    }
    return profile;
}

void CountBytes(benchmark::State& state, const Profile& profile)
{
    state.SetBytesProcessed(static_cast<std::int64_t>(profile.text.size()) * state.iterations());
}

void Read(benchmark::State& state)
{
    const Profile& profile = ProfileOf(state);
    char value[kValueRoom];
    for (auto _ : state) {
        ZKQGeneral_GetPrivateProfileString_Mem(profile.lastSection.c_str(), kKeyName, "", value, sizeof(value),
                                               profile.text.c_str());
        if (profile.lastValue != value) {
            state.SkipWithError("wrong value");
            break;
        }
    }
    CountBytes(state, profile);
}

struct Wanted {
    const char* section;
    const char* key;
    char value[kValueRoom];
};

// Compares with regard to case, which is less work than the library does.
int PickValue(void* user, const char* section, const char* name, const char* value)
{
    Wanted* wanted = static_cast<Wanted*>(user);
    if (std::strcmp(section, wanted->section) == 0 && std::strcmp(name, wanted->key) == 0) {
        g_strlcpy(wanted->value, value, sizeof(wanted->value));
    }
    return 1;
}

void ReadInih(benchmark::State& state)
{
    const Profile& profile = ProfileOf(state);
    for (auto _ : state) {
        Wanted wanted = {profile.lastSection.c_str(), kKeyName, ""};
        if (ini_parse_string(profile.text.c_str(), PickValue, &wanted) != 0 || profile.lastValue != wanted.value) {
            state.SkipWithError("wrong value");
            break;
        }
    }
    CountBytes(state, profile);
}

void ReadGKeyFile(benchmark::State& state)
{
    const Profile& profile = ProfileOf(state);
    for (auto _ : state) {
        GKeyFile* file = g_key_file_new();
        g_key_file_load_from_data(file, profile.text.data(), profile.text.size(), G_KEY_FILE_NONE, nullptr);
        char* value = g_key_file_get_string(file, profile.lastSection.c_str(), kKeyName, nullptr);
        const bool bRight = value != nullptr && profile.lastValue == value;
        g_free(value);
        g_key_file_free(file);
        if (!bRight) {
            state.SkipWithError("wrong value");
            break;
        }
    }
    CountBytes(state, profile);
}

void Write(benchmark::State& state)
{
    const Profile& profile = ProfileOf(state);
    for (auto _ : state) {
        char* text = nullptr;
        int length = 0;
        const BOOL bDone = ZKQGeneral_WritePrivateProfileString_Mem(
            profile.text.c_str(), profile.lastSection.c_str(), kKeyName, "/srv/agent/sessions/moved", &text, &length);
        benchmark::DoNotOptimize(text);
        ZKQGeneral_FreeMallocBuffer(text);
        if (bDone != TRUE) {
            state.SkipWithError("not written");
            break;
        }
    }
    CountBytes(state, profile);
}

void Copy(benchmark::State& state)
{
    const Profile& profile = ProfileOf(state);
    for (auto _ : state) {
        void* text = std::malloc(profile.text.size() + 1);
        if (text == nullptr) {
            state.SkipWithError("no memory");
            break;
        }
        std::memcpy(text, profile.text.c_str(), profile.text.size() + 1);
        benchmark::DoNotOptimize(text);
        benchmark::ClobberMemory();
        std::free(text);
    }
    CountBytes(state, profile);
}

// Adds the sizes to a benchmark: 10 KB, 100 KB, 1 MB, 10 MB.
void Sizes(benchmark::internal::Benchmark* bench)
{
    bench->RangeMultiplier(10)->Range(10'000, 10'000'000);
}

BENCHMARK(Read)->Name("inifile/read/ours")->Apply(Sizes);
BENCHMARK(ReadInih)->Name("inifile/read/inih")->Apply(Sizes);
BENCHMARK(ReadGKeyFile)->Name("inifile/read/GKeyFile")->Apply(Sizes);
BENCHMARK(Write)->Name("inifile/write/ours")->Apply(Sizes);
BENCHMARK(Copy)->Name("inifile/write/memcpy")->Apply(Sizes);

} // namespace

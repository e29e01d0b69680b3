// Opening and closing every certificate of the system, from memory, against OpenSSL.
#include <ZKQ_general/x509.h>
#include <benchmark/benchmark.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

constexpr char kStore[] = "/etc/ssl/certs";

struct Sample {
    std::string pem;
    std::string der;
};

X509* ReadPem(const std::string& text)
{
    BIO* const memory = BIO_new_mem_buf(text.data(), static_cast<int>(text.size()));
    X509* const cert = PEM_read_bio_X509(memory, nullptr, nullptr, nullptr);
    BIO_free(memory);
    return cert;
}

X509* ReadDer(const std::string& bytes)
{
    const auto* next = reinterpret_cast<const unsigned char*>(bytes.data());
    return d2i_X509(nullptr, &next, static_cast<long>(bytes.size()));
}

void* Open(const std::string& bytes)
{
    void* cert = nullptr;
    ZKQGeneral_OpenCert(bytes.data(), static_cast<int>(bytes.size()), &cert);
    return cert;
}

/// Every certificate that both sides open: the library refuses names that GBK cannot hold.
std::vector<Sample> LoadSamples()
{
    std::vector<Sample> samples;
    for (const auto& entry : std::filesystem::directory_iterator(kStore)) {
        if (entry.path().extension() != ".pem") {
            continue;
        }
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        X509* const peer = ReadPem(text);
        void* const ours = Open(text);
        if (peer != nullptr && ours != nullptr) {
            unsigned char* der = nullptr;
            const int size = i2d_X509(peer, &der);
            samples.push_back({text, std::string(reinterpret_cast<char*>(der), static_cast<std::size_t>(size))});
            OPENSSL_free(der);
        }
        X509_free(peer);
        if (ours != nullptr) {
            ZKQGeneral_CloseCert(ours);
        }
    }
    return samples;
}

const std::vector<Sample>& Samples()
{
    static const std::vector<Sample> samples = LoadSamples();
    return samples;
}

/// Runs an action on each sample; what it returns is whether it could do it.
template <class Action>
void ForEachSample(benchmark::State& state, Action action)
{
    if (Samples().empty()) {
        state.SkipWithError("no certificates in /etc/ssl/certs");
        return;
    }
    for (auto _ : state) {
        for (const Sample& sample : Samples()) {
            if (!action(sample)) {
                state.SkipWithError("a certificate is refused");
                return;
            }
        }
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(Samples().size()) * state.iterations());
}

bool OpenAndClose(const std::string& bytes)
{
    void* const cert = Open(bytes);
    return cert != nullptr && ZKQGeneral_CloseCert(cert) == 0;
}

bool Release(X509* cert)
{
    const bool isThere = cert != nullptr;
    X509_free(cert);
    return isThere;
}

void OursPem(benchmark::State& state)
{
    ForEachSample(state, [](const Sample& sample) { return OpenAndClose(sample.pem); });
}

void PeerPem(benchmark::State& state)
{
    ForEachSample(state, [](const Sample& sample) { return Release(ReadPem(sample.pem)); });
}

void OursDer(benchmark::State& state)
{
    ForEachSample(state, [](const Sample& sample) { return OpenAndClose(sample.der); });
}

void PeerDer(benchmark::State& state)
{
    ForEachSample(state, [](const Sample& sample) { return Release(ReadDer(sample.der)); });
}

BENCHMARK(OursPem)->Name("x509-certificate/pem/ours")->Unit(benchmark::kMicrosecond);
BENCHMARK(PeerPem)->Name("x509-certificate/pem/openssl")->Unit(benchmark::kMicrosecond);
BENCHMARK(OursDer)->Name("x509-certificate/der/ours")->Unit(benchmark::kMicrosecond);
BENCHMARK(PeerDer)->Name("x509-certificate/der/openssl")->Unit(benchmark::kMicrosecond);

} // namespace

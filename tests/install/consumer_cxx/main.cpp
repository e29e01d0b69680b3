#include <ZKQ_general.hpp>

#include <cstdio>

int main()
{
    const auto tokens = zkq::Split("a b", " ");
    std::printf("%zu %s %s\n", tokens->size(), tokens.value()[0].c_str(), tokens.value()[1].c_str());
    const bool refused = !zkq::ReadFile("/no such file");  // a result tells
    return refused && ZKQGeneral_IsFileExist("/") ? 0 : 1; // and the C functions are there, too
}

// What the benchmark programs share.
#pragma once

#include <cstddef>
#include <string>

// A fresh directory for this run's files, removed with all it holds when the program ends. It lies in ZKQ_BENCH_DIR of
// the environment if that is set, else in the build tree.
const std::string& ScratchDirectory();

// Bytes that no file system or C library can take a short cut on, the same in every run.
std::string MakeNoise(std::size_t size);

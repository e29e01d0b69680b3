// System V objects of a test's own.
#pragma once

#include <gtest/gtest.h>
#include <sched.h>

#include "child.h"

namespace support {

/// Runs in a child, with no objects of others about; all that it leaves is removed with its namespace. False if the child
/// has skipped.
template <class Part>
bool RunInIpcNamespace(Part part)
{
    return RunInChild([&] {
        if (unshare(CLONE_NEWIPC) != 0)
            SkipChild("IPC namespace");
        part();
    });
}

} // namespace support

#define RUN_ALONE(...)                                                                                                 \
    if (!support::RunInIpcNamespace(__VA_ARGS__))                                                                      \
    GTEST_SKIP() << "the system does not allow this test, see above"

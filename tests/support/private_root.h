// The fixed places that the code under test reads, for the test process alone: a user and mount
// namespace of its own with an empty tree at /dev/block, /sys and /run. Takes no rights; where the
// machine forbids it, the tests fail. Of the other devices only null, zero and urandom are left.
// Children see the same trees. Every operation fails the test that calls it by itself.
#pragma once

#include <gtest/gtest.h>

#include <string>

// Enters the namespaces at the process's first call, before it has a second thread.
void EnterPrivateRoot();

// Empties the three trees. What is still open lives on, unreachable by name.
void ClearPrivateRoot();

// Make what is missing of the directories before `path`. A file's content or a link is replaced.
void MakeDirectory(const std::string& path);
void WriteFile(const std::string& path, const std::string& content);
void WriteLink(const std::string& path, const std::string& target);

// Empty trees for each test. No test runs without them.
class PrivateRootTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(EnterPrivateRoot());
        ASSERT_NO_FATAL_FAILURE(ClearPrivateRoot());
    }
};

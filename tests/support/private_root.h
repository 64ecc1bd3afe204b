// A private user and mount namespace of the test process, with empty trees at /dev/block, /sys and
// /run in place of the fixed paths that the code under test reads. Needs no privileges; if the
// machine forbids such namespaces, the tests fail. Of other devices only null, zero and urandom
// exist. Child processes see the same trees. A function that fails also fails the test.
#pragma once

#include <gtest/gtest.h>

#include <string>

// Enters the namespaces at the first call in the process, which must be before it has threads.
void EnterPrivateRoot();

// Empties the three trees. Open files stay usable.
void ClearPrivateRoot();

// These create missing parent directories and replace an existing file or link.
void MakeDirectory(const std::string& path);
void WriteFile(const std::string& path, const std::string& content);
void WriteLink(const std::string& path, const std::string& target);

// Every test starts with empty trees.
class PrivateRootTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(EnterPrivateRoot());
        ASSERT_NO_FATAL_FAILURE(ClearPrivateRoot());
    }
};

// Fails the test if its number of open descriptors changes during the lifetime of the object.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>

class OpenDescriptorsUnchanged {
  public:
    ~OpenDescriptorsUnchanged() { EXPECT_EQ(Count(), before_) << "open descriptors"; }

  private:
    static long Count() {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    }
    const long before_ = Count();
};

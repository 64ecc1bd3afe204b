// Fails the test that it lives in when more or fewer descriptors are open at its end than at its
// beginning.
#pragma once

#include <dirent.h>
#include <gtest/gtest.h>

class OpenDescriptorsUnchanged {
  public:
    ~OpenDescriptorsUnchanged() { EXPECT_EQ(Count(), before_) << "open descriptors"; }

  private:
    static int Count() {
        DIR* const directory = opendir("/proc/self/fd");
        int count = 0;
        while (directory != nullptr && readdir(directory) != nullptr) ++count;
        closedir(directory);
        return count;
    }
    const int before_ = Count();
};

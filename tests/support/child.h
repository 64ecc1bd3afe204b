// A child process that runs a function or a program, killed at the latest when its object goes.
#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

class Child {
  public:
    explicit Child(const std::function<void()>& body) : pid_(fork()) {
        if (pid_ != 0) return;
        body();
        _exit(126);
    }
    // `words` are the program and its arguments; `outputs`.out and .err receive what it writes.
    Child(
        const std::vector<std::string>& words, const std::string& outputs,
        const std::function<void()>& prepare = [] {})
        : Child([&] {
              prepare();
              for (const auto& [fd, end] : {std::pair(1, ".out"), std::pair(2, ".err")}) {
                  dup2(
                      open((outputs + end).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600),
                      fd);
              }
              std::vector<char*> argv;
              for (const std::string& word : words) argv.push_back(const_cast<char*>(word.c_str()));
              argv.push_back(nullptr);
              execv(argv[0], argv.data());
          }) {
        outputs_ = outputs;
    }
    ~Child() {
        Kill();
        (void)Wait();
    }
    pid_t pid() const { return pid_; }
    void Kill(int signal = SIGKILL) {
        if (pid_ > 0) kill(pid_, signal);
    }
    // The exit status; -1 when a signal ended it.
    int Wait() {
        int status = 0;
        if (pid_ <= 0 || waitpid(std::exchange(pid_, -1), &status, 0) < 0) return -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::string out() const { return ReadAll(outputs_ + ".out"); }
    std::string err() const { return ReadAll(outputs_ + ".err"); }

  private:
    static std::string ReadAll(const std::string& path) {
        std::ostringstream content;
        content << std::ifstream(path, std::ios::binary).rdbuf();
        return content.str();
    }

    std::string outputs_;
    pid_t pid_;
};

// Tries for up to a minute; whether it came true.
inline bool Eventually(const std::function<bool()>& condition) {
    for (int i = 0; i < 6000; ++i) {
        if (condition()) return true;
        usleep(10'000);
    }
    return false;
}

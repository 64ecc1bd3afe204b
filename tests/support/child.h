// A child process that runs a function or a program. The destructor kills it; the kernel kills it
// if the test process ends first.
#pragma once

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

// Whether the condition becomes true within a minute or more.
inline bool Eventually(const std::function<bool()>& condition) {
    for (int i = 0; i < 60'000; ++i) {
        if (condition()) return true;
        usleep(1000);
    }
    return false;
}

class Child {
  public:
    explicit Child(const std::function<void()>& body) : pid_(Fork()) {
        if (pid_ != 0) return;
        body();
        _exit(126);
    }
    // `words` are the program and its arguments. Its standard output and standard error go to
    // `outputs`.out and .err. `prepare` runs in the child before the program.
    Child(
        const std::vector<std::string>& words, const std::string& outputs,
        const std::function<void()>& prepare = [] {})
        : Child([&] {
              prepare();
              for (const auto& [fd, end] : {std::pair(1, ".out"), std::pair(2, ".err")}) {
                  constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC;
                  dup2(open((outputs + end).c_str(), kFlags, 0600), fd);
              }
              std::vector<char*> argv;
              for (const std::string& word : words) argv.push_back(const_cast<char*>(word.c_str()));
              argv.push_back(nullptr);
              execv(argv[0], argv.data());
          }) {
        outputs_ = outputs;
    }
    Child(Child&& other) noexcept
        : outputs_(std::move(other.outputs_)), pid_(std::exchange(other.pid_, -1)) {}
    ~Child() {
        Kill();
        (void)Wait();
    }

    pid_t Pid() const { return pid_; }
    void Kill(int signal = SIGKILL) {
        if (pid_ > 0) kill(pid_, signal);
    }
    // The exit status; -1 if a signal ended the process, or if it still runs after a minute.
    int Wait() {
        int status = 0;
        const auto ended = [&] { return waitpid(pid_, &status, WNOHANG) != 0; };
        if (pid_ <= 0 || !Eventually(ended)) return -1;
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::string Out() const { return ReadAll(outputs_ + ".out"); }
    std::string Err() const { return ReadAll(outputs_ + ".err"); }

  private:
    static pid_t Fork() {
        const pid_t parent = getpid();
        const pid_t pid = fork();
        if (pid == 0 && (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || getppid() != parent)) _exit(126);
        return pid;
    }
    static std::string ReadAll(const std::string& path) {
        std::ostringstream content;
        content << std::ifstream(path, std::ios::binary).rdbuf();
        return content.str();
    }

    std::string outputs_;
    pid_t pid_;
};

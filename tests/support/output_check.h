// Outputs of the command against their formats, by readers that are not ours.
#pragma once

#include <child.h>
#include <private_root.h>

#include <string>
#include <vector>

// What check_output.py, given the arguments, finds wrong with `output`; "": nothing.
inline std::string FaultsOf(const std::string& output, const std::vector<std::string>& arguments) {
    WriteFile("/run/output", output);
    std::vector<std::string> words{"/usr/bin/python3", OUTPUT_CHECKER};
    words.insert(words.end(), arguments.begin(), arguments.end());
    Child checker(words, "/run/checker", [] { dup2(open("/run/output", O_RDONLY), 0); });
    return checker.Wait() == 0 ? "" : "refused: " + checker.err();
}

/// The command line.
#pragma once

#include <string>
#include <vector>

struct Options {
    enum class Action { Convert, List, Help, Version };

    Action action = Action::Convert;
    std::string from;                ///< empty: the process code page
    std::string to;                  ///< likewise
    std::string output;              ///< empty: standard output
    std::string trace;               ///< empty: none
    std::vector<std::string> inputs; ///< "-": standard input
};

/// Errors     Exit::Usage.
Options readOptions(int argc, char **argv);

extern const char c_helpText[];

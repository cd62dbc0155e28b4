/// The command line of dirload.
#pragma once

#include <string>
#include <vector>

struct Options {
    std::vector<std::string> files;
    std::string plugin;
    std::string trace;
    unsigned threads = 1;
    bool json = false;
    bool strict = false;
    bool help = false;
};

extern const char c_helpText[];

/// Errors     Failure, Exit::Usage.
Options readOptions(int argc, char **argv);

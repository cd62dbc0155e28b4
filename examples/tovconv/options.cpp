#include "options.h"

#include "failure.h"

#include <getopt.h>

const char c_helpText[] =
    R"(Usage: tovconv [-f FROM] [-t TO] [-o OUT] [FILE...]

Converts text from one code page to another. Without a FILE, or where FILE is -,
it reads standard input; several FILEs are converted one behind the other.

  -f, --from FROM     code page of the input; by default that of the locale
  -t, --to TO         code page of the output; by default that of the locale
  -o, --output OUT    write to the file OUT instead of standard output
  -l, --list          list the code pages, each with its id
      --trace LEVELS  trace the library, for example '*=all' or 'TovNls::*=flow';
                      HVD_TRACE_FILE names a file for the trace
      --help          show this text
      --version       show the version

OUT is written beside its name and takes the name when all is done: a job that
fails or is interrupted leaves an older OUT as it was. OUT may be one of the FILEs.

Text that can't be converted ends the job. What came before it goes to standard
output, and the report tells the file, the byte (counted from 0), the line and the
column. Lines are counted by line feeds (U+000A). UTF-8 and UTF-16 input is
taken strictly.

Byte order marks are characters like others: UTF-16, UTF-16LE and UTF-16BE neither
need nor drop nor write one, and UTF-16 has the byte order of this machine.

Files may be of any size, but for code pages whose text carries a state from end to
end (ISO-2022, HZ, UTF-7, SCSU, BOCU-1, ISCII, and UTF-16 and UTF-32 with a byte
order mark under their other names): 16 MiB at most.

Exit codes:
  0  all is converted
  1  text that can't be converted
  2  wrong usage
  3  unknown code page
  4  an input can't be read
  5  no space left for the output
  6  the output is a pipe that the reader has closed
  7  the output can't be written for another reason
  8  out of memory, or a text above the limit for its code page
)";

namespace {

enum LongOnly : int { Trace = 256, Help, Version };

constexpr option c_longOptions[] = {
    {"from", required_argument, nullptr, 'f'},    {"to", required_argument, nullptr, 't'},
    {"output", required_argument, nullptr, 'o'},  {"list", no_argument, nullptr, 'l'},
    {"trace", required_argument, nullptr, Trace}, {"help", no_argument, nullptr, Help},
    {"version", no_argument, nullptr, Version},   {nullptr, 0, nullptr, 0},
};

// The option that getopt_long is not content with.
std::string wrongOption(char **argv) {
    const bool isShort = optopt > 0 && optopt < Trace;
    return isShort ? std::string("-") + static_cast<char>(optopt) : argv[optind - 1];
}

void apply(Options &options, int key, char **argv) {
    switch (key) {
    case 'f':
        options.from = optarg;
        break;
    case 't':
        options.to = optarg;
        break;
    case 'o':
        options.output = optarg;
        break;
    case 'l':
        options.action = Options::Action::List;
        break;
    case Trace:
        options.trace = optarg;
        break;
    case Help:
        options.action = Options::Action::Help;
        break;
    case Version:
        options.action = Options::Action::Version;
        break;
    default:
        throw Failure(Exit::Usage, (key == ':' ? "an argument is missing behind " : "unknown option ") +
                                       wrongOption(argv) + "; try --help");
    }
}

} // namespace

Options readOptions(int argc, char **argv) {
    Options options;
    opterr = 0;
    for (int key; (key = getopt_long(argc, argv, ":f:t:o:l", c_longOptions, nullptr)) != -1;)
        apply(options, key, argv);
    options.inputs.assign(argv + optind, argv + argc);
    if (options.inputs.empty())
        options.inputs.emplace_back("-");
    return options;
}

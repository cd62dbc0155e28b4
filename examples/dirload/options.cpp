#include "options.h"

#include "failure.h"

#include <tovutil/tovuterr.h>
#include <tovutil/tovutstr.h>

#include <getopt.h>

const char c_helpText[] = R"(Usage: dirload [OPTION...] FILE...

Loads the entries of LDIF files (RFC 2849), - for standard input, and prints how many entries
and attributes there were, how often the cache knew a DN, and how many errors of each kind.

  -j, --json           print the summary as JSON
  -p, --plugin PATH    a plug-in that normalises attributes, such as dirload_contact.so
  -s, --strict         stop at the first error
  -t, --threads N      divide the files among N threads, 1 to 256
      --trace LEVELS   trace, for example 'Loader::*=all' or '*=error'; HVD_TRACE_FILE names
                       a file for the trace
      --help           show this text

Errors in the input are reported on standard error with file, line, column and the bad bytes,
lines and columns counted from 1, columns in bytes. A bad value costs that value, a bad DN its
entry; all else is loaded.

Values and DNs are UTF-8. Values of the known binary attributes (audio, cACertificate,
jpegPhoto, photo, userCertificate), or with the option ";binary", are only counted. Changes
("changetype:") and values at URLs ("attribute:< URL") are reported and not loaded. A line with
its continuations has at most 1 MiB; memory is needed for one entry in each thread.

Exit codes:
  0  all files were read, whatever errors were in them
  1  stopped at an error (--strict)
  2  wrong usage
  3  a file can't be read; all others were
  4  the plug-in can't be loaded
  5  the summary or the reports can't be written
  6  out of memory, or an error inside the library
)";

namespace {

enum LongOnly : int { Trace = 256, Help };

constexpr option c_longOptions[] = {
    {"json", no_argument, nullptr, 'j'},
    {"plugin", required_argument, nullptr, 'p'},
    {"strict", no_argument, nullptr, 's'},
    {"threads", required_argument, nullptr, 't'},
    {"trace", required_argument, nullptr, Trace},
    {"help", no_argument, nullptr, Help},
    {nullptr, 0, nullptr, 0},
};

unsigned toThreadCount(const char *text) {
    TovRc rc;
    const std::uint32_t count = TovUniString::fromBytes(text, TovUniString::npos).toUInt32(rc);
    if (!rc.ok() || count < 1 || count > 256)
        throw Failure(Exit::Usage, "--threads: 1 to 256");
    return count;
}

// An unknown letter may stand among others.
std::string wrongOption(int key, char **argv) {
    const bool isLetter = key == '?' && optopt > 0 && optopt < Trace;
    return isLetter ? std::string("-") + static_cast<char>(optopt) : argv[optind - 1];
}

void apply(Options &options, int key, char **argv) {
    switch (key) {
    case 'j':
        options.json = true;
        break;
    case 'p':
        options.plugin = optarg;
        break;
    case 's':
        options.strict = true;
        break;
    case 't':
        options.threads = toThreadCount(optarg);
        break;
    case Trace:
        options.trace = optarg;
        break;
    case Help:
        options.help = true;
        break;
    default:
        throw Failure(Exit::Usage, wrongOption(key, argv) +
                                       (key == ':' ? ": an argument is missing" : ": unknown option") +
                                       "; try --help");
    }
}

} // namespace

Options readOptions(int argc, char **argv) {
    Options options;
    opterr = 0;
    for (int key; (key = getopt_long(argc, argv, ":jp:st:", c_longOptions, nullptr)) != -1;)
        apply(options, key, argv);
    options.files.assign(argv + optind, argv + argc);
    if (options.files.empty() && !options.help)
        throw Failure(Exit::Usage, "no file is named; try --help");
    return options;
}

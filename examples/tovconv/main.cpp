// tovconv: converts text files between code pages, as callers of the library do it.
#include "decoder.h"
#include "encoder.h"
#include "failure.h"
#include "input.h"
#include "options.h"
#include "output.h"
#include "page.h"
#include "progress.h"
#include "source.h"

#include <services/hvdctl.h>
#include <services/zptlist.h>
#include <tovbuild.h>
#include <tovutil/tovutil.h>

#include <cstdio>
#include <cstring>
#include <new>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

Failure systemFailure(Exit exitCode, const std::string &name, int error) {
    return Failure(exitCode, name + ": " + std::strerror(error));
}

namespace {

// A program may be started with a standard stream closed. A file must not come into its place by chance.
void fillStandardStreams() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(descriptor, F_GETFD) < 0)
            open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY); // so that its use fails
}

// The bytes of all inputs; 0 where one has no size of its own.
std::uint64_t totalBytes(const std::vector<std::string> &names) {
    std::uint64_t total = 0;
    for (const std::string &name : names) {
        struct stat status = {};
        const int result = name == "-" ? fstat(STDIN_FILENO, &status) : stat(name.c_str(), &status);
        if (result != 0 || !S_ISREG(status.st_mode))
            return 0;
        total += static_cast<std::uint64_t>(status.st_size);
    }
    return total;
}

class Job {
public:
    explicit Job(const Options &options)
        : m_from(options.from), m_to(options.to), m_source(Source::of(m_from)), m_output(options.output),
          m_encoder(m_to, *m_source, m_output),
          m_progress(totalBytes(options.inputs), !m_output.isTerminal()) {}

    void convert(const std::string &name);
    void finish();

private:
    Page m_from;
    Page m_to;
    std::unique_ptr<Source> m_source;
    Output m_output;
    Encoder m_encoder;
    Progress m_progress;
};

void Job::convert(const std::string &name) {
    Input input(name);
    if (m_output.overwrites(input.status()))
        throw Failure(Exit::Output, input.name() + ": is the output, too");
    const bool mayJoinMarks = m_to.form() == Page::Form::Closed && m_to.longestCharacter() > 1;
    Decoder decoder(m_from, *m_source, input, mayJoinMarks);
    for (Piece piece; decoder.next(piece);) {
        const std::size_t bytes = piece.bytes.size();
        m_encoder.put(std::move(piece));
        m_progress.advance(bytes);
    }
}

void Job::finish() {
    m_encoder.finish();
    m_output.commit();
}

void convert(const Options &options) {
    Job job(options);
    for (const std::string &name : options.inputs)
        job.convert(name);
    job.finish();
}

// One line for each: the id that the library knows the name by, and the name.
void list() {
    std::string text;
    for (std::size_t i = 0; i < ZPT_CodepageCount(); ++i) {
        const char *name = ZPT_CodepageNameAt(i);
        const TovCodePage *page = tovGetCodePage(tovToUnicode(name, 0xFFFFFFFFU, true).c_str());
        text += std::to_string(page->id) + "\t" + name + "\n";
    }
    Output("").write(text);
}

void run(const Options &options) {
    if (!options.trace.empty() && !hvdTraceSetLevels(options.trace.c_str()))
        throw Failure(Exit::Usage, "--trace: the levels are malformed");
    switch (options.action) {
    case Options::Action::Convert:
        return convert(options);
    case Options::Action::List:
        return list();
    case Options::Action::Help:
        return Output("").write(c_helpText);
    case Options::Action::Version:
        return Output("").write("tovconv " TOV_VERSION "\n");
    }
}

Exit exitOf(const TovError &error) {
    const bool unknownName =
        error.getReturnCode() == TOVRC_NLS_ERROR || error.getReturnCode() == TOVRC_INVALID_MBCHAR;
    return unknownName ? Exit::UnknownCodePage : Exit::Limits;
}

int ended(Exit exitCode, const std::string &message) {
    std::fprintf(stderr, "tovconv: %s\n", message.c_str());
    return static_cast<int>(exitCode);
}

} // namespace

int main(int argc, char **argv) {
    fillStandardStreams();
    catchSignals();
    try {
        run(readOptions(argc, argv));
        return static_cast<int>(Exit::Success);
    } catch (const Failure &failure) {
        return ended(failure.exitCode(), failure.what());
    } catch (const TovError &error) {
        return ended(exitOf(error), std::string(error.getErrorMessage()) + "\n" + error.getLocation());
    } catch (const std::bad_alloc &) {
        return ended(Exit::Limits, "out of memory");
    }
}

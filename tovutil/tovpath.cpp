// File paths as text.
#include <tovutil/tovpath.h>

#include <tovutil/tovtrcfn.h>

#include <cerrno>
#include <cstring>

#include <sys/stat.h>

TOV_TRACE_FILE_AS("tovutil/tovpath", "TOVUTIL", 0x80000000);

namespace {

// 0 without a separator, because npos + 1 is 0.
std::size_t baseStart(const TovString &path) { return path.find_last_of("\\/") + 1; }

} // namespace

TovString TovOsPath::baseName(const TovString &path) {
    TOV_TRACE_ENTER("TovOsPath::baseName", TOV_VALUE(path));
    return TOV_TRACE_RESULT(path.substr(baseStart(path)));
}

TovString TovOsPath::pathName(const TovString &path) {
    TOV_TRACE_ENTER("TovOsPath::pathName", TOV_VALUE(path));
    return TOV_TRACE_RESULT(path.substr(0, baseStart(path)));
}

bool TovOsPath::isFile(const TovString &path) {
    TOV_TRACE_ENTER("TovOsPath::isFile", TOV_VALUE(path));
    struct stat st;
    if (stat(path.c_str(), &st) == 0) {
        TOV_TRACE_DETAIL(TOV_VALUE(st.st_mode));
        return TOV_TRACE_RESULT((st.st_mode & S_IFREG) != 0);
    }
    const int err = errno;
    TOV_TRACE_FLOW(TOV_VALUE(err));
    if (err != ENOENT)
        TOV_TRACE_ERROR(TOV_VALUE(err) << TOV_VALUE(strerror(err)));
    return TOV_TRACE_RESULT(false);
}

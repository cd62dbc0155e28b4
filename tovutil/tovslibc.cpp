// The loader of shared libraries, over the platform's.
#include <tovutil/tovslibc.h>

#include <tovutil/tovpath.h>
#include <tovutil/tovtrcfn.h>

#include <new>

#include <dlfcn.h>

TOV_TRACE_FILE("tovutil/tovslibc");

namespace {

TovString decorated(const TovString &libName) {
    return TovOsPath::pathName(libName) + "lib" + TovOsPath::baseName(libName) + ".so";
}

// To be called directly after the call that failed.
const char *loaderError() {
    const char *text = dlerror();
    return text ? text : "";
}

} // namespace

TovSharedLib::TovSharedLib(const char *libName, bool decorateName, bool keepLoaded)
    : m_handle(nullptr), m_keepLoaded(keepLoaded) {
    if (decorateName && libName)
        load(decorated(libName).c_str());
    else
        load(libName);
}

TovSharedLib::~TovSharedLib() {
    if (m_keepLoaded)
        return;
    try {
        unload();
    } catch (const std::bad_alloc &) {
        close(); // only the trace of unload() needs memory
    }
}

void TovSharedLib::load(const char *libName) {
    TOV_TRACE_ENTER("TovSharedLib::load", TOV_VALUE(libName));
    if (!libName)
        TOV_RAISE(0, TOVRC_SHLIB_ERROR, "Invalid argument");
    m_handle = dlopen(libName, RTLD_LAZY | RTLD_GLOBAL);
    if (!m_handle) {
        const char *reason = loaderError();
        TOV_RAISE(0, TOVRC_SHLIB_ERROR,
                  TovString("Can't load the dynamic library \"") + libName + "\". " + reason);
    }
    TOV_TRACE_LEAVE();
}

void TovSharedLib::unload() {
    TOV_TRACE_ENTER("TovSharedLib::unload");
    close();
    TOV_TRACE_LEAVE();
}

void TovSharedLib::close() {
    if (m_handle)
        dlclose(m_handle);
    m_handle = nullptr;
}

void *TovSharedLib::getFuncAddress(const char *funcName) const {
    TOV_TRACE_ENTER("TovSharedLib::getFuncAddress", TOV_VALUE(funcName));
    void *address = nullptr;
    if (m_handle && funcName) {
        address = dlsym(m_handle, funcName);
        if (!address)
            TOV_RAISE(1, TOVRC_SHLIB_ERROR, loaderError());
    }
    TOV_TRACE_LEAVE();
    return address;
}

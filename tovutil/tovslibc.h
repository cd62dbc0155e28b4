/// Loads a shared library and hands out the addresses of its functions.
///
/// Ownership  The object holds one handle of the dynamic loader, and its destructor gives it back unless told
///            otherwise. A load() over a handle drops that handle and leaves its library in the process.
///            Addresses are valid as long as the library is loaded.
/// Units      Names are bytes, as the dynamic loader takes them.
/// Errors     TovErrorFull with TOVRC_SHLIB_ERROR, and the loader's own text in its message.
/// Threads    One thread at a time.
#pragma once

#include <tovutil/tovexport.h>

class TOV_EXPORT TovSharedLib {
public:
    /// Loads `libName`. With `decorateName`, "lib" goes in front of its last component and ".so" behind it:
    /// "dir/foo" becomes "dir/libfoo.so". With `keepLoaded`, the destructor leaves the library loaded.
    ///
    /// Errors     As load(); out of memory.
    TovSharedLib(const char *libName, bool decorateName, bool keepLoaded);
    virtual ~TovSharedLib();
    TovSharedLib(const TovSharedLib &) = delete;
    TovSharedLib &operator=(const TovSharedLib &) = delete;

    /// Loads a library; its symbols are bound at their first use and are visible to all libraries that are
    /// loaded later. The name goes to the loader as it is.
    ///
    /// Errors     "Invalid argument" for null, and the former handle is kept. "Can't load the dynamic
    ///            library", with the name and the loader's text; the object then holds no handle.
    void load(const char *libName);

    /// Gives the handle back; does nothing without one.
    void unload();

    /// The address of a function; null when nothing is loaded or the name is null.
    ///
    /// Errors     The loader's text alone, when the library has no such symbol.
    void *getFuncAddress(const char *funcName) const;

private:
    void close();

    void *m_handle;
    bool m_keepLoaded;
};

/// Type descriptors and casts by descriptor, for classes that need them without the compiler's own.
///
/// Ownership  A descriptor keeps its name's address and the extra pointer; both must outlive it.
/// Threads    A descriptor never changes and may be read from any thread.
#pragma once

#include <tovutil/tovexport.h>

/// One descriptor per class. Two descriptors are the same type when their names are the same pointer; the
/// text is not compared.
class TOV_EXPORT TovTypeInfo {
public:
    TovTypeInfo(const char *name, void *extra) : m_name(name), m_extra(extra) {}
    virtual ~TovTypeInfo();

    /// 1 for yes and 0 for no.
    int operator==(const TovTypeInfo &other) const { return m_name == other.m_name; }
    int operator!=(const TovTypeInfo &other) const { return m_name != other.m_name; }

    /// Always 0: no order is defined between descriptors.
    int before(const TovTypeInfo &other) const;

    /// The same pointer, that of the constructor.
    const char *name() const { return m_name; }
    const char *raw_name() const { return m_name; }

    /// Reports that an object of type `from` can't be converted to this type.
    ///
    /// Errors     std::runtime_error with both names, always; std::bad_alloc when its text can't be made.
    [[noreturn]] void badRefCast(const TovTypeInfo &from) const;

private:
    const char *m_name;
    [[maybe_unused]] void *m_extra;
};

/// Base of classes that can be cast by descriptor.
class TOV_EXPORT TovRttiBase {
public:
    /// The descriptor of the object's class.
    virtual const TovTypeInfo &getTypeInfo() const = 0;

    /// The object as one of class `target`; null when it is not of that class. `unused` is null.
    virtual void *castTo(const TovTypeInfo &target, void *unused) = 0;

    virtual ~TovRttiBase();

    /// castTo() with a null second argument, whatever `unused` is.
    void *rttiCast(const TovTypeInfo &target, void *unused);
};

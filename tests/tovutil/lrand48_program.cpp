// Whose lrand48 a program has: built once with the library and once without it, where the library comes
// into the process only later. The platform's is the one that goes with nrand48.
#include <cstdio>
#include <cstdlib>

#include <dlfcn.h>

namespace {

constexpr long c_ours[] = {691697443, 1212725355, 1561868404, 2080534686, 1350720880, 912694393};

bool isOurs() {
    for (const long number : c_ours)
        if (lrand48() != number)
            return false;
    return true;
}

bool isThePlatforms() {
    unsigned short state[3] = {};
    for (int i = 0; i < 6; ++i)
        if (lrand48() != nrand48(state))
            return false;
    return true;
}

} // namespace

int main(int argc, char **argv) {
    if (argc == 1)
        return isOurs() ? 0 : 1;
    void *library = dlopen(argv[1], RTLD_NOW | RTLD_GLOBAL);
    if (!library) {
        std::printf("%s\n", dlerror());
        return 1;
    }
    auto *ours = reinterpret_cast<long (*)()>(dlsym(library, "lrand48"));
    // It stays loaded: what it keeps for the life of the process would be a leak without it.
    return isThePlatforms() && ours && ours() == c_ours[0] ? 0 : 1;
}

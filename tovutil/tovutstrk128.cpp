// Searches in 16-bit text for SSE2, which every x86-64 has.
#include <tovutil/tovutstrkt.h>

#if defined(__x86_64__)

namespace tovdetail {

constinit const UnitSearch unitSearchSse2 = unitSearchOf<Sse2Vector<8>>;

} // namespace tovdetail

#endif

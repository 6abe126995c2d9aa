// libFuzzer target: arbitrary bytes as an ini file. Writing the document back and reading it again gives the same
// document, and a key set on it reads back as set.
#include "inifile.h"

#include <cstdint>
#include <cstdlib>

using namespace Qt::StringLiterals;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const IniFile ini(QByteArray(reinterpret_cast<const char *>(data), qsizetype(size)));
    const QByteArray written = ini.content();
    if (IniFile(written).content() != written) {
        std::abort();
    }
    IniFile changed(written);
    changed.setValue(u"Grid"_s, u"ColWidth"_s, u"1200 800"_s);
    const IniFile reread(changed.content());
    if (reread.value(u"grid"_s, u"COLWIDTH"_s) != std::optional<QString>(u"1200 800"_s)) {
        std::abort();
    }
    return 0;
}

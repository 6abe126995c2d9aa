// libFuzzer target: arbitrary UTF-16 through CSpell::py. The code keeps the input's length and holds only the
// input's own keyboard characters (or characters that fold to one, as the Kelvin sign folds to k), letters of the
// table, and "!".
#include "cspell.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    QString text(qsizetype(size / 2), Qt::Uninitialized);
    std::memcpy(text.data(), data, (size / 2) * 2);
    const QString code = CSpell::py(text);
    if (code.size() != text.size()) {
        std::abort();
    }
    static const QString letters = QStringLiteral("abcdefghjklmnopqrstwxyz");
    for (qsizetype i = 0; i < code.size(); ++i) {
        const QChar out = code.at(i);
        const bool passedThrough = out == text.at(i) && (out.unicode() < 128 || out.toCaseFolded().unicode() < 128);
        if (!passedThrough && !letters.contains(out) && out != u'!') {
            std::abort();
        }
    }
    return 0;
}

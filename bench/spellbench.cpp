// Mnemonic-code throughput: GetPy over 1,048,576 characters of first-level text in a fixed pseudo-random order and
// over mixed text, in characters a second; with --peer DIR (a folder holding node_modules/pinyin-pro) the same
// first-level text also goes through pinyin-pro under Node.js, and the ratio is printed.
//
//   quillon-bench-spell [--peer DIR]
#include "benchsupport.h"
#include "cspell.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QStringDecoder>
#include <QTemporaryDir>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype kChars = 1 << 20;

QString firstLevelText()
{
    // All first-level characters (rows 0xB0 to 0xD7, 0xD7FA to 0xD7FE excluded), drawn in a fixed order.
    QStringDecoder gb("GB2312");
    QList<QChar> pool;
    for (int lead = 0xB0; lead <= 0xD7; ++lead) {
        for (int trail = 0xA1; trail <= 0xFE; ++trail) {
            if (lead == 0xD7 && trail > 0xF9) {
                continue;
            }
            const char bytes[2] = {char(lead), char(trail)};
            const QString c = gb.decode(QByteArrayView(bytes, 2));
            if (c.size() == 1) {
                pool.append(c.at(0));
            }
        }
    }
    QRandomGenerator rng(1048576);
    QString text(kChars, Qt::Uninitialized);
    for (QChar &c : text) {
        c = pool.at(rng.bounded(int(pool.size())));
    }
    return text;
}

QString mixedText()
{
    const QString parts[] = {u"Coca-Cola 500ml"_s, u"康师傅矿泉水"_s, u"亟嗒讴锕"_s,    u"喆堃"_s,
                             u"(促销)#12"_s,       u"，。"_s,         u"ABC xyz 0987"_s};
    QRandomGenerator rng(77);
    QString text;
    text.reserve(kChars);
    while (text.size() < kChars) {
        text += parts[rng.bounded(int(std::size(parts)))];
    }
    text.truncate(kChars);
    return text;
}

double measure(const QString &text, int rounds)
{
    CSpell::py(u"预热"); // builds the table outside the timing
    QElapsedTimer timer;
    timer.start();
    qsizetype sink = 0;
    for (int i = 0; i < rounds; ++i) {
        sink += CSpell::py(text).size();
    }
    return double(sink) / BenchSupport::seconds(timer);
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    BenchSupport::Console console;
    QString peer;
    if (!BenchSupport::Options("quillon-bench-spell [--peer DIR]").value(u"--peer"_s, peer).parse()) {
        return 2;
    }
    const QString level1 = firstLevelText();
    const QString mixed = mixedText();
    const double ours = measure(level1, 50);
    std::printf("GetPy, first-level text: %.0f characters a second\n", ours);
    std::printf("GetPy, mixed text:       %.0f characters a second\n", measure(mixed, 50));
    if (peer.isEmpty()) {
        return 0;
    }

    QTemporaryDir dir;
    QFile file(dir.filePath(u"level1.txt"_s));
    if (!file.open(QIODevice::WriteOnly)) {
        return 1;
    }
    file.write(level1.toUtf8());
    file.close();
    const QString script = uR"(
const { pinyin } = require('pinyin-pro');
const text = require('fs').readFileSync(process.argv[1], 'utf8');
pinyin(text.slice(0, 1000), { pattern: 'first', toneType: 'none', separator: '' });
const start = process.hrtime.bigint();
const out = pinyin(text, { pattern: 'first', toneType: 'none', separator: '' });
const seconds = Number(process.hrtime.bigint() - start) / 1e9;
console.log(JSON.stringify({ seconds, length: out.length, chars: text.length }));
)"_s;
    QProcess node;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(u"NODE_PATH"_s, peer + u"/node_modules"_s);
    node.setProcessEnvironment(env);
    node.start(u"node"_s, {u"-e"_s, script, file.fileName()});
    if (!node.waitForFinished(600000) || node.exitCode() != 0) {
        std::fprintf(stderr, "pinyin-pro failed: %s\n", node.readAllStandardError().constData());
        return 1;
    }
    const QByteArray line = node.readAllStandardOutput().trimmed();
    const double seconds = QString::fromUtf8(line).section(u"\"seconds\":"_s, 1).section(u',', 0, 0).toDouble();
    const double theirs = double(kChars) / seconds;
    std::printf("pinyin-pro, first-level text: %.0f characters a second (%s)\n", theirs, line.constData());
    std::printf("ratio: %.0fx (goal >= 200x)\n", ours / theirs);
    return 0;
}

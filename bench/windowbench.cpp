// Opens the item management window on a large store and prints how long showing the goods and scrolling take.
//
//   quillon-bench-window [--items N] [--db URL] [--reuse]
//
// Runs on the offscreen platform unless QT_QPA_PLATFORM says otherwise. Without --db the database is an SQLite
// file in a temporary folder; --reuse keeps a database that already holds N generated items.
#include "benchdata.h"
#include "benchsupport.h"
#include "cbus.h"
#include "cconnection.h"
#include "citems.h"
#include "frmmain.h"
#include "frmsearch.h"
#include "itemgrid.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QRandomGenerator>
#include <QScrollBar>

#include <algorithm>
#include <cstdio>

using namespace Qt::StringLiterals;
using BenchSupport::milliseconds;

int main(int argc, char *argv[])
{
    BenchSupport::preferOffscreen();
    QApplication app(argc, argv);
    BenchSupport::Console console;

    BenchData::Store store;
    if (!store.options("quillon-bench-window [--items N] [--db URL] [--reuse]").parse()) {
        return 2;
    }
    auto db = store.open();
    if (!db) {
        return 1;
    }

    CBus bus;
    QElapsedTimer timer;
    timer.start();
    bus.InitAllData(db);
    std::printf("InitAllData: %.0f ms, %d goods\n", milliseconds(timer), bus.mAllGoods()->Count());

    bus.ShowMain();
    frmMain *form = bus.mainWindow();
    form->resize(1200, 800);
    QCoreApplication::processEvents();
    ItemGrid *grid = form->Flexgd1;

    const qint64 before = BenchSupport::trimmedResidentBytes();
    timer.restart();
    form->selectKind(4);
    grid->viewport()->repaint();
    const double open = milliseconds(timer);
    const qint64 after = BenchSupport::residentBytes();
    std::printf("open the goods kind (bind + first paint): %.1f ms (goal: under 1000 ms), grid rows %d\n", open,
                grid->Rows() - 1);
    std::printf("memory added by showing the goods: %.1f MB (%.1f bytes a goods)\n", double(after - before) / 1e6,
                double(after - before) / std::max(1, bus.mAllGoods()->Count()));

    // Jumps to random places and paints the page each time, as dragging the scroll bar does.
    QScrollBar *bar = grid->verticalScrollBar();
    QRandomGenerator rng(7);
    std::vector<double> frames;
    for (int i = 0; i < 300; ++i) {
        const int value = rng.bounded(bar->maximum() + 1);
        timer.restart();
        bar->setValue(value);
        grid->viewport()->repaint();
        frames.push_back(milliseconds(timer));
    }
    std::sort(frames.begin(), frames.end());
    std::printf("scroll and paint a page: median %.2f ms, 99th percentile %.2f ms, worst %.2f ms\n",
                frames[frames.size() / 2], frames[frames.size() * 99 / 100], frames.back());

    // The search dialog over every goods row, finding nothing (the longest search).
    frmSearch *search = form->searchDialog();
    search->txtSpell->setText(u"qqqqqq"_s);
    timer.restart();
    const int found = search->FindNext(-1);
    std::printf("search by mnemonic code over all goods (no match): %.0f ms (row %d)\n", milliseconds(timer), found);
    search->txtSpell->clear();
    search->txtNo->setText(u"SP0899990"_s);
    timer.restart();
    const int byNumber = search->FindNext(-1);
    std::printf("search by number, match near the end: %.0f ms (row %d)\n", milliseconds(timer), byNumber);
    return 0;
}

#include "windowfixture.h"

#include "app/detail/panetablemodel.h"
#include "model/commanderthemecolours.h"
#include "operations/commandererror.h"
#include "platform/desktop/modaldialogs.h"

#include <QAbstractButton>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QToolButton>

#include <atomic>
#include <map>
#include <thread>

using namespace quillorn;
using namespace quillorn::test;

namespace {

ThemeColour channels(QRgb rgb)
{
    return ThemeColour{uint8_t(qRed(rgb)), uint8_t(qGreen(rgb)), uint8_t(qBlue(rgb))};
}

// What the user sees of one text: the commonest colour of its area is the
// background, the pixel that stands out most from it is the ink.
double measuredContrast(const QImage &image, const QRect &area)
{
    std::map<QRgb, int> counts;
    const QRect inside = area.intersected(image.rect());
    for (int y = inside.top(); y <= inside.bottom(); ++y)
        for (int x = inside.left(); x <= inside.right(); ++x)
            ++counts[image.pixel(x, y)];
    if (counts.empty())
        return 0;
    const QRgb background = std::max_element(counts.begin(), counts.end(), [](auto &a, auto &b) {
                                return a.second < b.second;
                            })->first;
    double best = 1;
    for (const auto &[pixel, count] : counts)
        best = std::max(best, contrastRatio(channels(pixel), channels(background)));
    return best;
}

using TextArea = std::pair<QString, QRect>; // what, and where in the grabbed window

// The commonest colour of an area but `other`; none when the area holds no other.
std::optional<QRgb> commonest(const QImage &image, const QRect &area, std::optional<QRgb> other = {})
{
    std::map<QRgb, int> counts;
    for (int y = area.top(); y <= area.bottom(); ++y)
        for (int x = area.left(); x <= area.right(); ++x)
            if (image.pixel(x, y) != other)
                ++counts[image.pixel(x, y)];
    if (counts.empty())
        return std::nullopt;
    return std::max_element(counts.begin(), counts.end(),
                            [](auto &a, auto &b) { return a.second < b.second; })
        ->first;
}

} // namespace

// Every text the main window draws reads at 4.5:1 or more in every theme (WCAG AA), measured on the drawn
// pixels. Exempt: the design's own accent (function-key numbers, active-pane label), the orange of a
// failed job, and disabled controls, which are meant to be faint.
class ThemeContrastTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        m_f.setUp();
        m_f.tree->file("Right/b.txt", "in the way");
        m_f.left().newTab();
        m_f.left().setCursor(*m_f.tree / "Left/b.txt");
        m_f.left().setSelection({*m_f.tree / "Left/c.txt"});
        PaneModel &right = m_f.view->model().right();
        right.navigate(*m_f.tree / "Right/missing");
        WindowFixture::waitListed(right);
        TransferQueue &queue = m_f.view->model().queue();
        queue.enqueue("Copy 1 → Right", [](OperationControl &) {});
        queue.enqueue("Copy 2 → Archive", [](OperationControl &) {
            throw CommanderError("An item named ‘r.txt’ already exists.");
        });
        queue.enqueue("Copy 3 → Right", [this](OperationControl &control) {
            control.total(100);
            control.add(40);
            control.detail("Copying ‘b.txt’");
            while (!m_release)
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
        });
        QTRY_VERIFY(queue.running() && queue.detail() == "Copying ‘b.txt’");
        m_help = showAlert(m_f.view.get(), {"Keyboard help", CommanderModel::helpText(), {}});
    }

    void cleanupTestCase()
    {
        delete m_help;
        m_release = true;
        QTRY_VERIFY(!m_f.view->model().queue().running());
        m_f.tearDown();
    }

    void everyTextReadsInEveryTheme_data()
    {
        QTest::addColumn<int>("theme");
        for (CommanderTheme theme : allCommanderThemes)
            QTest::newRow(qPrintable(rawValue(theme))) << int(theme);
    }

    void everyTextReadsInEveryTheme()
    {
        QFETCH(int, theme);
        m_f.view->applyTheme(CommanderTheme(theme));
        QTest::qWait(20);
        QStringList weak;
        double weakest = 21;
        int count = 0;
        for (QWidget *window :
             {static_cast<QWidget *>(m_f.view.get()), static_cast<QWidget *>(m_help.data())}) {
            const QImage image = window->grab().toImage();
            for (const auto &[what, area] : textAreas(window)) {
                const double contrast = measuredContrast(image, area);
                ++count;
                weakest = std::min(weakest, contrast);
                if (contrast < 4.5)
                    weak << QStringLiteral("%1 (%2:1)").arg(what).arg(contrast, 0, 'f', 2);
            }
        }
        qInfo("%s: weakest of %d texts %.2f:1", qPrintable(rawValue(CommanderTheme(theme))), count, weakest);
        QVERIFY2(weak.isEmpty(), qPrintable(weak.join(", ")));
    }

    void cursorFrameStandsOutInEveryTheme_data() { everyTextReadsInEveryTheme_data(); }

    // The cursor row's frame reads at 3:1 or more (WCAG for graphics) against the rows
    // above and below and the cursor row's own fill, on a plain row next to a tagged
    // one and on a tagged row, in the active and the inactive pane; measured on the
    // drawn pixels.
    void cursorFrameStandsOutInEveryTheme()
    {
        QFETCH(int, theme);
        m_f.view->applyTheme(CommanderTheme(theme));
        auto *list = m_f.view->leftPane()->listView();
        const auto rowArea = [&](int row) {
            const QAbstractItemModel *table = list->model();
            return list->visualRect(table->index(row, 0))
                .united(list->visualRect(table->index(row, table->columnCount() - 1)));
        };
        QStringList weak;
        QList<QRgb> edgeColours;
        for (const bool active : {true, false}) {
            for (const char *item : {"b.txt", "c.txt"}) { // c.txt is tagged
                m_f.view->model().setActiveLeft(active);
                m_f.left().setCursor(*m_f.tree / "Left" / item);
                const QImage image = list->viewport()->grab().toImage();
                const int row = m_f.left().visibleIndexOf(*m_f.tree / "Left" / item).value();
                const QRect cursor = rowArea(row);
                const QRgb fill = commonest(image, cursor.adjusted(4, 4, -4, -4)).value();
                // The rows' own colours, their separators (the last line) left out.
                const QRgb above = commonest(image, rowArea(row - 1).adjusted(0, 0, 0, -1)).value();
                const QRgb below = commonest(image, rowArea(row + 1).adjusted(0, 0, 0, -1)).value();
                const std::pair<const char *, QRect> edges[] = {
                    {"top", QRect(cursor.left(), cursor.top(), cursor.width(), 1)},
                    {"bottom", QRect(cursor.left(), cursor.bottom(), cursor.width(), 1)},
                    {"left", QRect(cursor.left(), cursor.top() + 2, 1, cursor.height() - 4)},
                    {"right", QRect(cursor.right(), cursor.top() + 2, 1, cursor.height() - 4)}};
                for (const auto &[edge, line] : edges) {
                    const QString where = QStringLiteral("%1 pane, %2, %3 edge")
                                              .arg(active ? "active" : "inactive", item, edge);
                    const std::optional<QRgb> ink = commonest(image, line, fill); // the gaps show the fill
                    if (!ink) {
                        weak << where + " not drawn";
                        continue;
                    }
                    edgeColours << *ink;
                    for (const auto &[against, colour] :
                         {std::pair{"row above", above}, {"row below", below}, {"fill", fill}}) {
                        const double contrast = contrastRatio(channels(*ink), channels(colour));
                        if (contrast < 3)
                            weak << QStringLiteral("%1 against the %2 (%3:1)")
                                        .arg(where, against)
                                        .arg(contrast, 0, 'f', 2);
                    }
                }
            }
        }
        m_f.view->model().setActiveLeft(true);
        m_f.left().setCursor(*m_f.tree / "Left/b.txt");
        QVERIFY2(weak.isEmpty(), qPrintable(weak.join(", ")));
        // The active pane's frame is the theme's accent wherever that reads.
        const CommanderThemeColours palette = colours(CommanderTheme(theme));
        if (cursorFrameColour(palette, true) == palette.accent)
            QCOMPARE(channels(edgeColours.first()), palette.accent);
        QVERIFY(edgeColours.first() != edgeColours.last()); // the inactive pane's differs
    }

private:
    // The area of each text a window shows, icons and frames left out.
    static QList<TextArea> textAreas(QWidget *window)
    {
        QList<TextArea> areas;
        const auto add = [&](QWidget *widget, const QString &what, QRect rect) {
            if (widget->window() != window || !widget->isVisible() || !widget->isEnabled() || rect.isEmpty())
                return;
            if (!widget->visibleRegion().boundingRect().contains(rect))
                rect = rect.intersected(widget->visibleRegion().boundingRect());
            areas.append({what, QRect(widget->mapTo(window, rect.topLeft()), rect.size())});
        };
        for (QLabel *label : window->findChildren<QLabel *>()) {
            const QString name = label->objectName();
            if (label->text().isEmpty() || name == "functionKeyNumber" || name == "activePaneLabel" ||
                label->text().startsWith("Failed"))
                continue; // the accent and the failure orange are the design's own
            add(label, "label “" + label->text().left(30) + "”", label->contentsRect());
        }
        for (QAbstractButton *button : window->findChildren<QAbstractButton *>()) {
            const auto *tool = qobject_cast<QToolButton *>(button);
            if (button->text().isEmpty() || (tool && tool->toolButtonStyle() == Qt::ToolButtonIconOnly))
                continue;
            // Past the symbol, inside the frame.
            const int symbol = button->icon().isNull() ? 0 : button->iconSize().width() + 6;
            add(button, "button “" + button->text() + "”", button->rect().adjusted(3 + symbol, 3, -3, -3));
        }
        for (QLineEdit *edit : window->findChildren<QLineEdit *>())
            add(edit, "field “" + (edit->text().isEmpty() ? edit->placeholderText() : edit->text()) + "”",
                edit->rect().adjusted(4, 4, -4, -4));
        for (QHeaderView *header : window->findChildren<QHeaderView *>())
            for (int section = 0; section < header->count(); ++section)
                add(header->viewport(), "column header " + QString::number(section),
                    QRect(header->sectionViewportPosition(section), 0, header->sectionSize(section),
                          header->height()));
        for (auto *list : window->findChildren<QTableView *>())
            for (int row = 0; row < list->model()->rowCount(); ++row)
                for (int column = 0; column < list->model()->columnCount(); ++column) {
                    QRect cell = list->visualRect(list->model()->index(row, column));
                    if (column == detail::PaneTableModel::nameColumn)
                        cell.setLeft(cell.left() + 34); // past the symbol
                    add(list->viewport(), QStringLiteral("row %1 column %2").arg(row).arg(column),
                        cell.adjusted(0, 0, 0, -1));
                }
        return areas;
    }

    WindowFixture m_f;
    QPointer<QMessageBox> m_help;
    std::atomic<bool> m_release = false;
};

QTEST_MAIN(ThemeContrastTest)
#include "tst_themecontrast.moc"

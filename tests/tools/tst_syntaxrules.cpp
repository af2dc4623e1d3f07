#include "model/commanderthemecolours.h"
#include "tools/detail/syntaxhighlighting.h"

#include <QMimeDatabase>
#include <QSignalSpy>
#include <QTest>

using namespace quillorn::detail;

// The editor's colouring: what each family's scanner marks, line after line,
// and how the highlighting of a large text follows its edits.
class SyntaxRulesTest : public QObject {
    Q_OBJECT

    // Each token as its kind's letter and its text: "K:int N:0x1F C:// note".
    static QString describe(QStringView line, const std::vector<SyntaxToken> &tokens)
    {
        static const char letters[] = "KCSNMAE";
        QStringList parts;
        for (const SyntaxToken &token : tokens)
            parts << QString(QLatin1Char(letters[int(token.kind)])) + QLatin1Char(':') +
                         line.mid(token.start, token.length).toString();
        return parts.join(QLatin1Char(' '));
    }

private Q_SLOTS:
    void eachFamilyMarksItsParts_data()
    {
        QTest::addColumn<int>("syntax");
        QTest::addColumn<QStringList>("lines");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("C") << int(Syntax::c)
                           << QStringList{"#include <stdio.h>", "int x = 0x1F; // note", "/* open",
                                          "still */ return 1;"}
                           << QStringList{"M:#include", "K:int N:0x1F C:// note", "C:/* open",
                                          "C:still */ K:return N:1"};
        QTest::newRow("Python") << int(Syntax::python)
                                << QStringList{"@decorator", "def f(s='''x", "y''', n=None):"}
                                << QStringList{"M:@decorator", "K:def S:'''x", "S:y''' N:None"};
        QTest::newRow("shell") << int(Syntax::shell)
                               << QStringList{"echo \"$HOME\" # done", "a#b ${x} 'open", "close'"}
                               << QStringList{"S:\"$HOME\" C:# done", "A:${x} S:'open", "S:close'"};
        QTest::newRow("JavaScript") << int(Syntax::javascript) << QStringList{"const t = `a", "b` + null;"}
                                    << QStringList{"K:const S:`a", "S:b` N:null"};
        QTest::newRow("JSON") << int(Syntax::json)
                              << QStringList{"{\"key\": \"value\", \"n\": 12, \"ok\": true}"}
                              << QStringList{"A:\"key\" S:\"value\" A:\"n\" N:12 A:\"ok\" N:true"};
        QTest::newRow("Markdown") << int(Syntax::markdown)
                                  << QStringList{"# Title", "- *em* `code` [link](http://x) snake_case",
                                                 "```", "# not a title", "```"}
                                  << QStringList{"K:# Title", "M:- E:*em* S:`code` A:[link] S:(http://x)",
                                                 "M:```", "S:# not a title", "M:```"};
        QTest::newRow("HTML and XML")
            << int(Syntax::markup) << QStringList{"<a href=\"x\">&amp;<!-- c", "--></a>"}
            << QStringList{"K:<a A:href S:\"x\" K:> N:&amp; C:<!-- c", "C:--> K:</a K:>"};
        QTest::newRow("INI") << int(Syntax::ini) << QStringList{"[section]", "key = 42", "; note"}
                             << QStringList{"K:[section]", "A:key N:42", "C:; note"};
        QTest::newRow("YAML") << int(Syntax::yaml)
                              << QStringList{"--- # doc", "- name: \"x # y\" # c", "  a: &anchor"}
                              << QStringList{"M:--- C:# doc", "M:- A:name S:\"x # y\" C:# c",
                                             "A:a M:&anchor"};
    }

    void eachFamilyMarksItsParts()
    {
        QFETCH(int, syntax);
        QFETCH(QStringList, lines);
        QFETCH(QStringList, expected);
        QStringList found;
        int state = 0;
        for (const QString &line : lines) {
            std::vector<SyntaxToken> tokens;
            state = scanLine(Syntax(syntax), line, state, &tokens);
            found << describe(line, tokens);
        }
        QCOMPARE(found, expected);
    }

    void familiesComeFromTheMimeTypeOrTheName()
    {
        const QMimeDatabase types;
        const auto of = [&](const QString &name, const QByteArray &start) {
            const QMimeType type = types.mimeTypeForFileNameAndData(name, start);
            return syntaxFor(QStringList{type.name()} + type.allAncestors(), name);
        };
        QCOMPARE(of("main.cpp", ""), Syntax::c);
        QCOMPARE(of("tool", "#!/usr/bin/python3\n"), Syntax::python);
        QCOMPARE(of("run", "#!/bin/sh\n"), Syntax::shell);
        QCOMPARE(of("package.json", "{}"), Syntax::json); // JSON, which inherits JavaScript
        QCOMPARE(of("page.html", ""), Syntax::markup);
        QCOMPARE(of("icon.svg", "<svg/>"), Syntax::markup);
        QCOMPARE(of("README.md", ""), Syntax::markdown);
        QCOMPARE(of("ci.yml", ""), Syntax::yaml);
        QCOMPARE(of("app.desktop", ""), Syntax::ini);
        QCOMPARE(of("server.conf", ""), Syntax::ini);
        QCOMPARE(of("notes.txt", ""), Syntax::none);
    }

    // In every theme the colours differ from each other and read on the text's background.
    void everyThemesColoursReadOnTheText()
    {
        for (const quillorn::CommanderTheme theme : quillorn::allCommanderThemes) {
            const quillorn::CommanderThemeColours palette = quillorn::colours(theme);
            QSet<QRgb> distinct;
            for (const QColor &colour : syntaxColours(palette)) {
                const quillorn::ThemeColour shade{std::uint8_t(colour.red()), std::uint8_t(colour.green()),
                                                  std::uint8_t(colour.blue())};
                QVERIFY2(quillorn::contrastRatio(shade, palette.pane) >= 4.5,
                         qPrintable(quillorn::rawValue(theme) + " " + colour.name()));
                distinct.insert(colour.rgb());
            }
            QCOMPARE(distinct.size(), syntaxKindCount);
        }
    }

    // A key rescans its own line only, unless it changes what the lines below
    // start in; then the rest follows while the editor is idle.
    void highlightingFollowsEditsLineByLine()
    {
        TextBuffer text;
        text.setLines(std::vector<QString>(20'000, QStringLiteral("int a; // x")));
        SyntaxHighlighting highlighting(Syntax::c, text);
        QVERIFY(!highlighting.complete()); // 20,000 lines take more than a slice
        QTRY_VERIFY(highlighting.complete());
        QSignalSpy redraw(&highlighting, &SyntaxHighlighting::linesChanged);

        text.replace({{100, 0}, {100, 0}}, QStringLiteral("b"), EditKind::typing);
        QVERIFY(highlighting.complete());
        QCOMPARE(redraw.size(), 1);
        QCOMPARE(redraw.first(), (QVariantList{qsizetype(100), qsizetype(100)}));

        text.replace({{100, 0}, {100, 0}}, QStringLiteral("/*"), EditKind::typing);
        QTRY_VERIFY(highlighting.complete());
        const auto last = highlighting.tokens(19'999);
        QVERIFY(last && last->size() == 1 && last->front().kind == SyntaxKind::comment);
        text.replace({{19'000, 0}, {19'000, 0}}, QStringLiteral("*/\n"), EditKind::typing);
        QTRY_VERIFY(highlighting.complete());
        QCOMPARE(highlighting.tokens(19'999)->front().kind, SyntaxKind::keyword);
        QCOMPARE(highlighting.tokens(19'000)->front().kind, SyntaxKind::comment);
    }
};

QTEST_MAIN(SyntaxRulesTest)
#include "tst_syntaxrules.moc"

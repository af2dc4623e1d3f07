#include "model/renamepattern.h"

#include <QDateTime>
#include <gtest/gtest.h>

using namespace quillorn;

namespace {

using Rules = RenamePattern::Rules;
using Case = RenamePattern::LetterCase;

Rules with(std::function<void(Rules &)> set)
{
    Rules rules;
    set(rules);
    return rules;
}

std::chrono::system_clock::time_point localNoon(int year, int month, int day)
{
    const QDateTime noon(QDate(year, month, day), QTime(12, 0));
    return std::chrono::system_clock::time_point(std::chrono::milliseconds(noon.toMSecsSinceEpoch()));
}

} // namespace

TEST(RenamePattern, makesNamesFromPlaceholdersReplacementsAndLetterCase)
{
    const auto date = localNoon(2024, 3, 9);
    struct Row {
        const char *what;
        Rules rules;
        std::string name;
        std::size_t index;
        std::string expected;
    };
    const Row rows[] = {
        {"the default keeps the name", {}, "Photo.JPG", 0, "Photo.JPG"},
        {"hidden name has no extension", {}, ".bashrc", 0, ".bashrc"},
        {"a dot before an empty [E] goes", {}, "README", 0, "README"},
        {"a trailing dot stays", {}, "odd.", 0, "odd."},
        {"counter, step and digits", with([](Rules &r) {
             r.pattern = "[N]-[C].[E]", r.counterStart = 8, r.counterStep = 2, r.counterDigits = 3;
         }),
         "a.txt", 2, "a-012.txt"},
        {"date and literal brackets", with([](Rules &r) { r.pattern = "[d] [x] [N]"; }), "a.txt", 0,
         "2024-03-09 [x] a"},
        {"plain search ignores case", with([](Rules &r) { r.search = "IMG", r.replacement = "Holiday"; }),
         "img_01.img", 0, "Holiday_01.Holiday"},
        {"plain search with case",
         with([](Rules &r) { r.search = "IMG", r.replacement = "x", r.caseSensitive = true; }), "img_IMG", 0,
         "img_x"},
        {"expression with groups", with([](Rules &r) {
             r.search = R"((\d+)-(\d+))", r.replacement = R"(\2-\1)", r.regularExpression = true;
         }),
         "shot 12-34.png", 0, "shot 34-12.png"},
        {"lower case", with([](Rules &r) { r.letterCase = Case::lower; }), "Photo.JPG", 0, "photo.jpg"},
        {"upper case", with([](Rules &r) { r.letterCase = Case::upper; }), "Photo.jpg", 0, "PHOTO.JPG"},
        {"title case leaves the extension", with([](Rules &r) { r.letterCase = Case::title; }),
         "my dog's BEST-day.JPG", 0, "My Dog's Best-Day.JPG"},
        // Bytes outside UTF-8 stay where the rules do not reach, through an expression too.
        {"bytes kept by the pattern", with([](Rules &r) { r.pattern = "[C] [N].[E]"; }), "\xff\xfe-A.JPG", 0,
         "1 \xff\xfe-A.JPG"},
        {"bytes kept by case", with([](Rules &r) { r.letterCase = Case::lower; }), "\xe9T\xc3.JPG", 0,
         "\xe9t\xc3.jpg"},
        {"bytes kept by an expression", with([](Rules &r) {
             r.search = "^(.)(.*)$", r.replacement = R"(\2\1)", r.regularExpression = true;
         }),
         "\xff"
         "ab",
         0, "ab\xff"},
    };
    for (const Row &row : rows) {
        const RenamePattern pattern(row.rules);
        EXPECT_TRUE(pattern.problem().isEmpty()) << row.what;
        EXPECT_EQ(pattern.newName(row.name, row.index, date), row.expected) << row.what;
    }
}

TEST(RenamePattern, anInvalidExpressionIsAProblemAndChangesNothing)
{
    const RenamePattern pattern(with([](Rules &r) { r.search = "(a", r.regularExpression = true; }));
    EXPECT_TRUE(pattern.problem().startsWith("The search expression is not valid: "))
        << pattern.problem().toStdString();
    EXPECT_EQ(pattern.newName("(a.txt", 0, {}), "(a.txt");
}

#include "platform/desktop/fileurl.h"
#include "platform/desktop/mimeapplications.h"
#include "recordingapplication.h"
#include "testtree.h"

#include <QRegularExpression>
#include <QTest>
#include <sys/stat.h>

using namespace quillorn;
using namespace quillorn::test;
namespace fs = std::filesystem;

namespace {

QStringList idsOf(const std::vector<DesktopApplication> &applications)
{
    QStringList ids;
    for (const DesktopApplication &application : applications)
        ids << application.id;
    return ids;
}

} // namespace

// The applications of a MIME type as the desktop's files register them, and
// starting one with paths. The desktop's folders are the test's own, set before
// anything reads them (the desktop library reads them once per process); the
// system's data folder stays last for the MIME types themselves.
class MimeApplicationsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        const fs::path shared = m_tree / "shared/applications", own = m_tree / "data/applications";
        const auto entry = [&](const fs::path &folder, const char *id, const char *name, const char *types,
                               const char *extra = "") {
            m_tree.file(folder / id, std::string("[Desktop Entry]\nType=Application\nName=") + name +
                                         "\nExec=true %F\nMimeType=" + types + "\n" + extra);
        };
        entry(shared, "alpha.desktop", "Alpha Reader", "text/plain;");
        entry(shared, "beta.desktop", "Beta Editor", "text/plain;");
        entry(shared, "gamma.desktop", "Gamma Paint", "image/png;");
        entry(shared, "delta.desktop", "Delta Viewer", "image/png;");
        entry(shared, "helper.desktop", "Hidden Helper", "image/png;", "NoDisplay=true\n");
        addRecordingApplication(m_tree, own, "recorder.desktop", "Recorder", "application/x-quillorn-test;",
                                m_tree / "files.record", "%F");
        addRecordingApplication(m_tree, own, "urlrecorder.desktop", "URL Recorder",
                                "application/x-quillorn-test;", m_tree / "urls.record", "%U");
        QVERIFY(indexApplications(shared) && indexApplications(own));
        m_tree.file("config/mimeapps.list", "[Default Applications]\n"
                                            "text/plain=beta.desktop\n"
                                            "image/png=delta.desktop\n"
                                            "[Added Associations]\n"
                                            "text/plain=gamma.desktop;\n"
                                            "[Removed Associations]\n"
                                            "text/plain=alpha.desktop;\n");
        // The desktop's own list comes before the shared one.
        m_tree.file("config/quilltest-mimeapps.list", "[Default Applications]\nimage/png=gamma.desktop\n");
        qputenv("XDG_CURRENT_DESKTOP", "Quilltest");
        qputenv("XDG_CONFIG_HOME", QByteArray::fromStdString(m_tree / "config"));
        qputenv("XDG_CONFIG_DIRS", QByteArray::fromStdString(m_tree / "config-system"));
        qputenv("XDG_DATA_HOME", QByteArray::fromStdString(m_tree / "data"));
        qputenv("XDG_DATA_DIRS", QByteArray::fromStdString((m_tree / "shared").string() + ":/usr/share"));
    }

    void applicationsFollowTheDefaultsAndAssociations()
    {
        const QStringList text = idsOf(applicationsFor("text/plain"));
        QVERIFY2(text.value(0) == "beta.desktop", qPrintable(text.join(' '))); // the default first
        QVERIFY(text.contains("gamma.desktop"));                               // added
        QVERIFY(!text.contains("alpha.desktop"));                              // removed
        QCOMPARE(text.count("beta.desktop"), qsizetype(1));
        const QStringList images = idsOf(applicationsFor("image/png"));
        QCOMPARE(images.value(0), "gamma.desktop");
        QVERIFY(images.contains("delta.desktop"));
        QVERIFY(!images.contains("beta.desktop"));
        QCOMPARE(idsOf(applicationsFor("application/x-quillorn-test")),
                 (QStringList{"recorder.desktop", "urlrecorder.desktop"}));

        QStringList ours;
        for (const DesktopApplication &application : allApplications())
            if (QString(application.name)
                    .contains(QRegularExpression("^(Alpha|Beta|Gamma|Delta|Hidden|Recorder)")))
                ours << application.name;
        QCOMPARE(ours,
                 (QStringList{"Alpha Reader", "Beta Editor", "Delta Viewer", "Gamma Paint", "Recorder"}));
    }

    // The application gets the items' bytes, names outside UTF-8 included: as
    // paths for %F; for %U as the same paths or file URLs that decode to them.
    void launchingPassesTheExactPaths()
    {
        const std::vector<fs::path> items{m_tree.file("docs/plain.txt", "x"),
                                          m_tree.file("docs/caf\xe9 menu.txt", "x")};
        for (const char *id : {"recorder.desktop", "urlrecorder.desktop"}) {
            const std::optional<QString> failure = launchApplication(id, items);
            QVERIFY2(!failure, qPrintable(failure.value_or(QString())));
        }
        QTRY_VERIFY(fs::exists(m_tree / "files.record") && fs::exists(m_tree / "urls.record"));
        QCOMPARE(recordedArguments(m_tree / "files.record"), (std::vector<std::string>{items[0], items[1]}));
        std::vector<fs::path> fromUrls;
        for (const std::string &url : recordedArguments(m_tree / "urls.record"))
            fromUrls.push_back(url.starts_with("file:")
                                   ? pathFromFileUrl(QByteArray::fromStdString(url)).value_or("")
                                   : fs::path(url));
        QCOMPARE(fromUrls, items);

        const std::optional<QString> missing = launchApplication("nowhere.desktop", items);
        QVERIFY(missing && missing->contains("‘nowhere.desktop’ is not installed"));
    }

    void typesComeFromTheNameThenTheContent()
    {
        QCOMPARE(mimeTypeOf(m_tree.folder("folder.txt")), "inode/directory");
        QCOMPARE(mimeTypeOf(m_tree.file("notes.txt", "hello")), "text/plain");
        // No extension and a name that is not UTF-8: the bytes of the real file decide.
        QCOMPARE(mimeTypeOf(m_tree.file("picture-\xff", std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16))),
                 "image/png");
        const fs::path pipe = m_tree / "pipe";
        QCOMPARE(::mkfifo(pipe.c_str(), 0600), 0);
        QCOMPARE(mimeTypeOf(pipe), "inode/fifo"); // and not left waiting for a writer
    }

private:
    TestTree m_tree;
};

QTEST_GUILESS_MAIN(MimeApplicationsTest)
#include "tst_mimeapplications.moc"

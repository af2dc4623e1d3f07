// ctest-labels: root
#include "panefixture.h"

#include <QTest>
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

using namespace quillorn;
using namespace quillorn::test;
namespace fs = std::filesystem;

namespace {

// The scope runs with the effective user and group of nobody, so that file
// permissions apply as to an ordinary user; root's come back at the end.
struct AsNobody {
    const passwd *user = ::getpwnam("nobody");
    const group *grp = ::getgrnam("nogroup");
    const bool ok = user && grp && ::setegid(grp->gr_gid) == 0 && ::seteuid(user->pw_uid) == 0;
    ~AsNobody()
    {
        if (::seteuid(0) != 0 || ::setegid(0) != 0)
            qFatal("could not restore root privileges");
    }
};

} // namespace

class PaneModelAccessTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (::geteuid() != 0)
            QSKIP("needs root to list as the unprivileged user nobody");
    }

    void aFolderNobodyMayNotListFailsWithAClearError_data()
    {
        QTest::addColumn<int>("permissions"); // what others may do in the folder
        QTest::addColumn<QString>("named");
        QTest::newRow("enter, not read") << int(fs::perms::others_exec) << QString("‘locked’");
        QTest::newRow("read names, not examine") << int(fs::perms::others_read) << QString("‘item’");
    }
    void aFolderNobodyMayNotListFailsWithAClearError()
    {
        QFETCH(int, permissions);
        QFETCH(QString, named);
        PaneFixture f;
        fs::permissions(f.tree.root(),
                        fs::perms::owner_all | fs::perms::others_exec | fs::perms::others_read);
        const fs::path locked = f.tree.folder("locked");
        f.tree.file("locked/item");
        fs::permissions(locked, fs::perms::owner_all | fs::perms(permissions));
        {
            AsNobody nobody;
            QVERIFY2(nobody.ok, "cannot switch to nobody/nogroup");
            auto pane = f.pane(locked);
            QVERIFY(settled(*pane, false));
            QVERIFY(pane->error() && pane->entries().empty());
            QVERIFY2(pane->error()->contains("Permission denied") && pane->error()->contains(named),
                     qPrintable(*pane->error()));
        }
        // Root lists the same folder: the failure above came from the permissions alone.
        auto pane = f.pane(locked);
        QVERIFY(settled(*pane));
        QCOMPARE(namesOf(pane->entries()), QStringList{"item"});
    }
};

QTEST_GUILESS_MAIN(PaneModelAccessTest)
#include "tst_panemodelaccess.moc"

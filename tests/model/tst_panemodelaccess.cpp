// ctest-labels: root
#include "panefixture.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

using namespace quillorn;
using namespace quillorn::test;
namespace fs = std::filesystem;

// Runs the scope as nobody, so that file permissions apply as to an ordinary user.
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

class PaneModelAccessTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void aFolderNobodyMayNotListFailsWithAClearError_data()
    {
        QTest::addColumn<fs::perms>("others"); // what others may do in the folder
        QTest::addColumn<QString>("named");
        QTest::newRow("enter, not read") << fs::perms::others_exec << QString("‘locked’");
        QTest::newRow("read names, not examine") << fs::perms::others_read << QString("‘item’");
    }
    void aFolderNobodyMayNotListFailsWithAClearError()
    {
        if (::geteuid() != 0)
            QSKIP("needs root to list as the unprivileged user nobody");
        QFETCH(fs::perms, others);
        QFETCH(QString, named);
        PaneFixture f;
        fs::permissions(f.tree.root(),
                        fs::perms::owner_all | fs::perms::others_exec | fs::perms::others_read);
        const fs::path locked = f.tree.file("locked/item").parent_path();
        fs::permissions(locked, fs::perms::owner_all | others);
        {
            AsNobody nobody;
            QVERIFY2(nobody.ok, "cannot switch to nobody/nogroup");
            auto pane = f.pane(locked);
            QVERIFY(settled(*pane, false) && pane->entries().empty());
            const QString error = pane->error().value_or("no error");
            QVERIFY2(error.contains("Permission denied") && error.contains(named), qPrintable(error));
        }
        // Root lists the same folder: the failure above came from the permissions alone.
        auto pane = f.pane(locked);
        QVERIFY(settled(*pane));
        QCOMPARE(namesOf(pane->entries()), QStringList{"item"});
    }
};

QTEST_GUILESS_MAIN(PaneModelAccessTest)
#include "tst_panemodelaccess.moc"

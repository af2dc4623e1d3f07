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

// Runs the scope with the effective user and group of nobody, so that file
// permissions apply as they do for an ordinary user (root's capabilities are
// dropped with the effective uid and come back when it is restored).
class AsNobody {
public:
    AsNobody()
    {
        const passwd *user = ::getpwnam("nobody");
        const group *grp = ::getgrnam("nogroup");
        m_ok = user && grp && ::setegid(grp->gr_gid) == 0 && ::seteuid(user->pw_uid) == 0;
    }
    ~AsNobody()
    {
        if (::seteuid(0) != 0 || ::setegid(0) != 0)
            qFatal("could not restore root privileges");
    }
    bool ok() const { return m_ok; }

private:
    bool m_ok = false;
};

} // namespace

class PaneModelAccessTest : public QObject {
    Q_OBJECT

private:
    void listAsNobody(const fs::path &folder, std::optional<QString> &error, QStringList &names)
    {
        PaneFixture fixture;
        AsNobody nobody;
        QVERIFY2(nobody.ok(), "cannot switch to nobody/nogroup");
        auto pane = fixture.pane(folder);
        QVERIFY(settled(*pane, false));
        error = pane->error();
        names = namesOf(pane->entries());
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (::geteuid() != 0)
            QSKIP("needs root to list as the unprivileged user nobody");
    }

    void aFolderWithoutReadPermissionGivesAClearError()
    {
        TestTree tree;
        fs::permissions(tree.root(), fs::perms::owner_all | fs::perms::others_exec | fs::perms::others_read);
        const fs::path locked = tree.folder("locked");
        tree.file("locked/secret");
        fs::permissions(locked, fs::perms::owner_all | fs::perms::others_exec); // enter, but not read
        std::optional<QString> error;
        QStringList names;
        listAsNobody(locked, error, names);
        QVERIFY(error);
        QVERIFY2(error->contains("Permission denied"), qPrintable(*error));
        QVERIFY(error->contains(QString::fromUtf8("‘locked’")));
        QVERIFY(names.isEmpty());
    }

    void aReadableFolderWhoseItemsCannotBeExaminedFails()
    {
        TestTree tree;
        fs::permissions(tree.root(), fs::perms::owner_all | fs::perms::others_exec | fs::perms::others_read);
        const fs::path folder = tree.folder("names-only");
        tree.file("names-only/item");
        fs::permissions(folder, fs::perms::owner_all | fs::perms::others_read); // read names, no stat
        std::optional<QString> error;
        QStringList names;
        listAsNobody(folder, error, names);
        QVERIFY(error);
        QVERIFY2(error->contains("Permission denied") && error->contains(QString::fromUtf8("‘item’")),
                 qPrintable(*error));
    }

    void theSameFoldersListForRoot()
    {
        // Guards the two tests above: the folders themselves are fine.
        TestTree tree;
        const fs::path locked = tree.folder("locked");
        tree.file("locked/secret");
        fs::permissions(locked, fs::perms::owner_exec);
        PaneFixture fixture;
        auto pane = fixture.pane(locked);
        QVERIFY(settled(*pane));
        QVERIFY(!pane->error());
        QCOMPARE(namesOf(pane->entries()), QStringList{"secret"});
    }
};

QTEST_GUILESS_MAIN(PaneModelAccessTest)
#include "tst_panemodelaccess.moc"

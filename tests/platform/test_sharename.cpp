// The desktop's shares in the locations menu: the names of gvfsd-fuse and
// kio-fuse folders, and the volumes a mount table in mountinfo's format yields.
#include "platform/posix/sharename.h"
#include "platform/posix/volume.h"

#include "testtree.h"

#include <gmock/gmock.h>

namespace fs = std::filesystem;
using namespace quillorn;
using quillorn::test::TestTree;
using namespace ::testing;

TEST(ShareName, GvfsFoldersAreNamedAsTheDesktopNamesTheirMounts)
{
    const std::pair<const char *, const char *> cases[] = {
        {"smb-share:server=nas,share=public", "public on nas"},
        {"smb-share:domain=WORKGROUP,server=192.168.1.10,share=m%C3%BAsica,user=bob",
         "música on 192.168.1.10"},
        {"smb-share:server=nas,share=a%2Cb%3Dc", "a,b=c on nas"}, // escaped separators
        {"afp-volume:host=mac.local,user=me,volume=Home", "Home on mac.local"},
        {"sftp:host=example.com,user=bob", "bob on example.com"},
        {"ftp:host=ftp.debian.org", "ftp.debian.org"},
        {"dav:host=cloud.example,prefix=%2Fremote.php%2Fwebdav%2F,ssl=true,user=me",
         "webdav on cloud.example"},
        {"smb-server:server=nas", "nas"},
        {"mtp:host=Phone_Model_123", "Phone_Model_123"},
        {"smb-share:server=nas,share=50%", "50% on nas"}, // a stray % stays
        // Not a mount spec: the folder's own name.
        {"plain folder", "plain folder"},
        {"trash:", "trash:"},
        {"smb-share:share=public", "smb-share:share=public"},
        {"smb-share:server", "smb-share:server"},
    };
    for (const auto &[folder, name] : cases)
        EXPECT_EQ(gvfsShareName(folder), name) << folder;
    EXPECT_EQ(kioFuseShareName("smb", "nas"), "nas (smb)");
    EXPECT_EQ(kioFuseShareName("sftp", "bob@host.example:2222"), "host.example (sftp)");
    EXPECT_EQ(kioFuseShareName("ftp", "[::1]"), "[::1] (ftp)");
    EXPECT_EQ(kioFuseShareName("ftp", "me@[::1]:21"), "[::1] (ftp)");
}

TEST(MountedVolumes, EachDesktopShareIsAPlaceAndTheDaemonsMountsAndPlumbingAreNot)
{
    TestTree tree;
    const fs::path gvfs = tree.folder("run/gvfs"), kio = tree.folder("run/kio-fuse-AbC123");
    tree.folder("run/gvfs/smb-share:server=nas,share=public");
    tree.folder("run/gvfs/sftp:host=example.com,user=bob");
    tree.folder("run/kio-fuse-AbC123/smb/nas.local");
    tree.folder("run/kio-fuse-AbC123/smb/bob@other");
    const std::string table =
        "22 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
        "23 22 0:21 / /proc rw,nosuid shared:12 - proc proc rw\n"
        "24 22 0:5 / /dev/pts rw shared:3 - devpts devpts rw\n"
        "60 22 8:17 / /media/me/USB\\040STICK rw,nosuid shared:40 - vfat /dev/sdb1 rw\n"
        "61 22 0:52 / " +
        gvfs.string() + " rw,nosuid,nodev shared:41 - fuse.gvfsd-fuse gvfsd-fuse rw,user_id=1000\n" +
        "62 22 0:53 / " + kio.string() + " rw shared:42 - fuse.kio-fuse kio-fuse rw,user_id=1000\n" +
        // A gvfs mount whose daemon died: nothing to list, and no error.
        "63 22 0:54 / /nonexistent/gvfs rw - fuse.gvfsd-fuse gvfsd-fuse rw\n" + "not a mount line\n";
    EXPECT_THAT(mountedVolumes(table),
                ElementsAre(MountedVolume{"/", ""}, MountedVolume{"/media/me/USB STICK", ""},
                            MountedVolume{gvfs / "sftp:host=example.com,user=bob", "bob on example.com"},
                            MountedVolume{gvfs / "smb-share:server=nas,share=public", "public on nas"},
                            MountedVolume{kio / "smb/bob@other", "other (smb)"},
                            MountedVolume{kio / "smb/nas.local", "nas.local (smb)"}));
    // A table with nothing to show still offers the root.
    EXPECT_THAT(mountedVolumes(""), ElementsAre(MountedVolume{"/", ""}));
}

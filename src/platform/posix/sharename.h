#pragma once

#include <string>
#include <string_view>

namespace quillorn {

// What the locations menu calls a share the desktop mounted. GNOME's gvfsd-fuse
// shows each mount as one folder named after its mount spec,
// "smb-share:server=nas,share=public,user=bob" with the values URI-escaped; the
// name is the one the desktop itself gives: "public on nas", "bob on host" for
// an sftp or ftp login, the last folder of a WebDAV or NFS prefix "on" its
// host, else the host alone. A name that is no mount spec is returned as it is.
std::string gvfsShareName(std::string_view folderName);

// KDE's kio-fuse shows smb://bob@nas/public at <mount>/smb/bob@nas/public;
// listing below the server folder already reaches the network, so the menu
// stops there: "nas (smb)".
std::string kioFuseShareName(std::string_view protocol, std::string_view origin);

} // namespace quillorn

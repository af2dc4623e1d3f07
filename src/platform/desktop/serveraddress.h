#pragma once

class QUrl;

namespace quillorn {

// Hands a server address (smb://, afp://) to the desktop, whose file manager
// mounts the share and asks for credentials itself; Quillorn never sees them.
// True when something took the address.
bool handServerAddressToDesktop(const QUrl &address);

} // namespace quillorn

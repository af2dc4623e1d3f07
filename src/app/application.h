#pragma once

namespace quillorn {

// Builds the application objects in start-up order and runs the event loop.
int runApplication(int argc, char *argv[]);

} // namespace quillorn

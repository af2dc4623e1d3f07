#pragma once

#include <QObject>
#include <QString>
#include <filesystem>
#include <vector>

namespace quillorn {

// One Quillorn per user session. The first to start owns a name on the session
// bus; a later start hands its items to that one (which opens them and comes to
// the front) and exits. Without a session bus every start runs on its own.
class SingleInstance : public QObject {
    Q_OBJECT
public:
    static constexpr const char *serviceName = "io.quillorn.Quillorn";
    static constexpr const char *objectPath = "/io/quillorn/Quillorn";

    explicit SingleInstance(QObject *parent = nullptr);
    ~SingleInstance() override;

    // Asks the running Quillorn to open `items` (absolute paths, as bytes) and
    // to come to the front with the desktop's activation token, if there is one.
    // False when none runs or it did not answer: this process should become it.
    static bool handOver(const std::vector<std::filesystem::path> &items, const QString &activationToken);

    // Becomes the one Quillorn of the session: false when another owns the name
    // (it started at the same moment) or there is no session bus.
    bool claim();

Q_SIGNALS:
    void openRequested(const std::vector<std::filesystem::path> &items, const QString &activationToken);

private:
    class Object;
    Object *m_object = nullptr;
    bool m_registered = false; // the bus is only reached once asked to
};

} // namespace quillorn

#pragma once

#include "services/zipentry.h"

#include <QString>
#include <QWidget>
#include <exception>
#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

class QLabel;
class QLineEdit;
class QListView;
class QPlainTextEdit;
class QPushButton;

namespace quillorn {

class TransferQueue;

namespace detail {
class ArchiveMemberModel;
}

// The read-only archive browser: lists the archive's members once, in the
// background, filters them by path, previews one as text and extracts one as a
// single file into `destination` (the opposite pane's folder) through the
// queue. Work still running when the sheet closes finishes on its own; its
// result is dropped, except that an extraction asked for before is still queued.
//
// A ZIP is read through unzip, and the sheet does nothing more; the other
// formats (tar in its compressions, 7z, ISO 9660, cpio, RAR) are read through
// the archive library, show each member's size and date, and can also be
// unpacked whole into a new folder of the destination.
class ArchiveSheet : public QWidget {
    Q_OBJECT
public:
    using Path = std::filesystem::path;

    ArchiveSheet(Path url, Path destination, TransferQueue &queue, std::function<void()> dismiss,
                 QWidget *parent = nullptr);

    const QString &status() const { return m_status; }
    const QString &preview() const { return m_preview; }
    bool loading() const { return m_loading; }
    const std::optional<QString> &selected() const { return m_selected; }
    void select(const QString &name);
    void setFilter(const QString &filter);
    // The names the list shows now, in order.
    QStringList shownNames() const;

    // Reads the selected member, then previews it or queues its extraction.
    void readMember(bool extract);

    // The first `count` user-perceived characters of the text.
    static QString leadingCharacters(const QString &text, qsizetype count);

    static constexpr qsizetype previewCharacters = 100'000;
    static inline const QString initialStatus = QStringLiteral("Reading ZIP directory\u2026");
    static inline const QString otherInitialStatus = QStringLiteral("Reading archive directory\u2026");

    // Queues the unpacking of the whole archive (not for ZIP: the pane's command does that).
    void extractAll();
    bool readsZip() const { return m_zip; }
    static inline const QString binary = QStringLiteral("Binary member; extract to open it.");

private:
    void listed(std::vector<ZipEntry> entries);
    void memberRead(const QString &name, bool extract, const QByteArray &bytes);
    void setStatus(const QString &status);
    void setPreview(const QString &preview);
    void setLoading(bool loading);
    void updateButtons();
    void followSelection();
    void reselect();

    Path m_url;
    bool m_zip = true;
    Path m_destination;
    TransferQueue &m_queue;
    std::function<void()> m_dismiss;
    std::optional<QString> m_selected;
    QString m_status = initialStatus;
    QString m_preview;
    bool m_loading = false;
    bool m_refiltering = false;

    QLineEdit *m_filter = nullptr;
    QLabel *m_statusLabel = nullptr;
    QListView *m_list = nullptr;
    detail::ArchiveMemberModel *m_members = nullptr;
    QPlainTextEdit *m_previewText = nullptr;
    QPushButton *m_previewButton = nullptr;
    QPushButton *m_extractButton = nullptr;
    QPushButton *m_extractAllButton = nullptr;
    QPushButton *m_pressed = nullptr; // the action button that had the keyboard when a read began
};

} // namespace quillorn

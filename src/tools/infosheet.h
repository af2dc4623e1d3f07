#pragma once

#include <QString>
#include <QWidget>
#include <filesystem>
#include <functional>
#include <optional>

class QLabel;
class QLineEdit;
class QPushButton;

namespace quillorn {

// The facts of one item (path, type, size, owner, group, modification time,
// mode) and its permission bits, set from three octal digits. Works on that
// item alone, by its real bytes, and never follows or changes a symbolic link.
// Each read and the one write are single quick calls made on the interface
// thread.
class InfoSheet : public QWidget {
    Q_OBJECT
public:
    using Path = std::filesystem::path;

    InfoSheet(Path url, std::function<void()> dismiss, QWidget *parent = nullptr);

    // Reads the item again and shows what it finds; a failure only sets the status.
    void load();
    // Applies the permission text to the item.
    void applyPermissions();

    const QString &details() const { return m_details; }
    QString permissions() const;
    void setPermissions(const QString &text);
    const QString &status() const { return m_status; }
    bool editable() const { return m_editable; }

    // The three octal digits' value, or none unless the text is exactly that.
    static std::optional<unsigned> parsePermissions(const QString &text);

    static inline const QString badPermissions = QStringLiteral("Enter three octal digits (000–777).");

private:
    void setStatus(const QString &status);
    void setEditable(bool editable);

    Path m_url;
    std::function<void()> m_dismiss;
    QString m_details;
    QString m_status;
    bool m_editable = false;

    QLabel *m_detailsLabel = nullptr;
    QLineEdit *m_permissions = nullptr;
    QPushButton *m_apply = nullptr;
    QLabel *m_statusLabel = nullptr;
};

} // namespace quillorn

#pragma once

#include "platform/desktop/detail/quicklookcontent.h"

#include <QWidget>
#include <filesystem>
#include <functional>

class QLabel;
class QPlainTextEdit;

namespace quillorn {

// The built-in quick look: a window showing a picture scaled to fit, the start
// of a text file read-only, or the facts of anything else. The item is read
// on a background thread; the window appears once it has been read, or
// `failed` is told why it could not be, on the interface thread. Space or
// Escape closes it.
class QuickLook : public QWidget {
    Q_OBJECT
public:
    using Failed = std::function<void(const QString &reason)>;

    // Reads the item in the background and then shows it in a new window.
    static void preview(const std::filesystem::path &item, Failed failed, QWidget *parent = nullptr);

    explicit QuickLook(detail::QuickLookContent content, QWidget *parent = nullptr);

    const detail::QuickLookContent &content() const { return m_content; }

protected:
    void resizeEvent(QResizeEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    void drawImage();

    detail::QuickLookContent m_content;
    QLabel *m_picture = nullptr;
};

} // namespace quillorn

#include "platform/desktop/quicklook.h"

#include "platform/core/receiverguard.h"

#include <QApplication>
#include <QFontDatabase>
#include <QKeyEvent>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPointer>
#include <QScreen>
#include <QVBoxLayout>
#include <system_error>
#include <thread>

namespace quillorn {

namespace {

// Receives the loaded content on the interface thread and lives only as long
// as one load; it dies with the parent window if that goes first.
class QuickLookLoad : public QObject {
public:
    explicit QuickLookLoad(QObject *parent) : QObject(parent), m_guard(ReceiverGuard::create(this)) {}
    ~QuickLookLoad() override { m_guard->release(); }

    const std::shared_ptr<ReceiverGuard> &guard() const { return m_guard; }

private:
    std::shared_ptr<ReceiverGuard> m_guard;
};

} // namespace

void QuickLook::preview(const std::filesystem::path &item, Failed failed, QWidget *parent)
{
    auto *load = new QuickLookLoad(parent ? static_cast<QObject *>(parent) : qApp);
    QPointer<QWidget> owner(parent);
    std::thread([item, failed = std::move(failed), load, owner, guard = load->guard()] {
        std::optional<detail::QuickLookContent> content;
        QString reason;
        try {
            content = detail::QuickLookContent::load(item);
        } catch (const std::system_error &error) {
            reason = QString::fromStdString(error.code().message());
        } catch (const std::exception &error) {
            reason = QString::fromStdString(error.what());
        }
        guard->post([load, owner, failed, content = std::move(content), reason]() mutable {
            load->deleteLater();
            if (!content) {
                if (failed)
                    failed(reason);
                return;
            }
            auto *window = new QuickLook(std::move(*content), owner.data());
            window->setAttribute(Qt::WA_DeleteOnClose);
            window->show();
            window->raise();
            window->activateWindow();
        });
    }).detach();
}

QuickLook::QuickLook(detail::QuickLookContent content, QWidget *parent)
    : QWidget(parent, Qt::Window), m_content(std::move(content))
{
    setWindowTitle(m_content.title);
    auto *layout = new QVBoxLayout(this);
    using Kind = detail::QuickLookContent::Kind;
    if (m_content.kind == Kind::image) {
        m_picture = new QLabel(this);
        m_picture->setAlignment(Qt::AlignCenter);
        m_picture->setMinimumSize(64, 64);
        layout->addWidget(m_picture);
        const QSize available = screen() ? screen()->availableSize() * 0.8 : QSize(1024, 768);
        resize(m_content.image.size().boundedTo(available).expandedTo(QSize(320, 240)));
    } else {
        auto *text = new QPlainTextEdit(this);
        text->setReadOnly(true);
        text->setPlainText(m_content.text);
        if (m_content.kind == Kind::text)
            text->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
        layout->addWidget(text);
        if (m_content.truncated)
            layout->addWidget(new QLabel(QStringLiteral("Showing the first 256 KB."), this));
        resize(m_content.kind == Kind::text ? QSize(720, 560) : QSize(480, 220));
    }
}

void QuickLook::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    drawImage();
}

void QuickLook::drawImage()
{
    if (!m_picture || m_content.image.isNull())
        return;
    const QSize room = m_picture->size();
    // Never enlarged: a small picture stays sharp at its own size.
    const QImage shown = m_content.image.width() > room.width() || m_content.image.height() > room.height()
                             ? m_content.image.scaled(room, Qt::KeepAspectRatio, Qt::SmoothTransformation)
                             : m_content.image;
    m_picture->setPixmap(QPixmap::fromImage(shown));
}

void QuickLook::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape || event->key() == Qt::Key_Space) {
        close();
        return;
    }
    QWidget::keyPressEvent(event);
}

} // namespace quillorn

#include "app/detail/busyoverlay.h"

#include <QPainter>

namespace quillorn::detail {

namespace {
constexpr int kSpokes = 12;
}

BusyOverlay::BusyOverlay(QWidget *parent) : QWidget(parent), m_wash(0, 0, 0, 60), m_spinner(Qt::white)
{
    setAttribute(Qt::WA_TransparentForMouseEvents);
    hide();
    m_showDelay.setSingleShot(true);
    m_showDelay.setInterval(defaultShowDelayMs);
    connect(&m_showDelay, &QTimer::timeout, this, [this] {
        if (m_busy) {
            raise();
            show();
        }
    });
    m_timer.setInterval(80);
    connect(&m_timer, &QTimer::timeout, this, [this] {
        m_step = (m_step + 1) % kSpokes;
        update();
    });
}

void BusyOverlay::setColours(const QColor &wash, const QColor &spinner)
{
    m_wash = wash;
    m_spinner = spinner;
    update();
}

void BusyOverlay::setBusy(bool busy)
{
    m_busy = busy;
    if (!busy) {
        m_showDelay.stop();
        hide();
    } else if (m_showDelay.interval() == 0) {
        raise();
        show();
    } else if (!isVisible() && !m_showDelay.isActive()) {
        m_showDelay.start();
    }
}

void BusyOverlay::setShowDelay(int milliseconds)
{
    m_showDelay.setInterval(milliseconds);
}

void BusyOverlay::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.fillRect(rect(), m_wash);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.translate(rect().center());
    for (int i = 0; i < kSpokes; ++i) {
        QColor colour = m_spinner;
        colour.setAlphaF(0.25f + 0.75f * static_cast<float>((i + kSpokes - m_step) % kSpokes) / kSpokes);
        painter.setPen(QPen(colour, 2, Qt::SolidLine, Qt::RoundCap));
        painter.drawLine(QPointF(0, -5), QPointF(0, -9));
        painter.rotate(360.0 / kSpokes);
    }
}

void BusyOverlay::showEvent(QShowEvent *)
{
    m_timer.start();
}

void BusyOverlay::hideEvent(QHideEvent *)
{
    m_timer.stop();
}

} // namespace quillorn::detail

#pragma once

#include <QColor>
#include <QTimer>
#include <QWidget>

namespace quillorn::detail {

// Laid over the listing while a folder lists: a light wash of the pane colour
// with a small spinning indicator in the middle. It appears only once a listing
// has lasted a moment, so the quick refreshes of the metadata timer and the
// folder watcher do not make the list blink. Animates only while shown.
class BusyOverlay : public QWidget {
    Q_OBJECT
public:
    static constexpr int defaultShowDelayMs = 150;

    explicit BusyOverlay(QWidget *parent = nullptr);

    void setColours(const QColor &wash, const QColor &spinner);
    void setBusy(bool busy);
    void setShowDelay(int milliseconds);

protected:
    void paintEvent(QPaintEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    QTimer m_timer;
    QTimer m_showDelay;
    bool m_busy = false;
    int m_step = 0;
    QColor m_wash;
    QColor m_spinner;
};

} // namespace quillorn::detail

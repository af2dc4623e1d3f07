#pragma once

#include <QColor>
#include <QTimer>
#include <QWidget>

namespace quillorn::detail {

// Laid over the listing while a folder lists: a light wash of the pane colour
// with a small spinning indicator in the middle. Animates only while shown.
class BusyOverlay : public QWidget {
    Q_OBJECT
public:
    explicit BusyOverlay(QWidget *parent = nullptr);

    void setColours(const QColor &wash, const QColor &spinner);

protected:
    void paintEvent(QPaintEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    QTimer m_timer;
    int m_step = 0;
    QColor m_wash;
    QColor m_spinner;
};

} // namespace quillorn::detail

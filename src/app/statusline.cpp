#include "app/statusline.h"

#include "model/commandermodel.h"
#include "model/commanderthemecolours.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>

namespace quillorn {

namespace {

class GreenDot : public QWidget {
public:
    explicit GreenDot(QWidget *parent) : QWidget(parent) { setFixedSize(6, 6); }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor(52, 199, 89));
        painter.drawEllipse(rect());
    }
};

} // namespace

StatusLine::StatusLine(CommanderModel &model, QWidget *parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("statusLine"));
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(4, 2, 4, 2);
    layout->setSpacing(8);
    layout->addWidget(new GreenDot(this), 0, Qt::AlignVCenter);
    m_status = new QLabel(model.status(), this);
    m_status->setObjectName(QStringLiteral("statusText"));
    layout->addWidget(m_status);
    layout->addStretch(1);
    m_hint = new QLabel(hint, this);
    m_hint->setObjectName(QStringLiteral("statusHint"));
    layout->addWidget(m_hint);
    connect(&model, &CommanderModel::statusChanged, this,
            [this, &model] { m_status->setText(model.status()); });
}

void StatusLine::setTheme(CommanderTheme theme)
{
    QPalette hintPalette = m_hint->palette();
    hintPalette.setColor(QPalette::WindowText, textColours(colours(theme)).secondary);
    m_hint->setPalette(hintPalette);
}

QString StatusLine::statusText() const
{
    return m_status->text();
}

} // namespace quillorn

#include "tools/detail/showfolderdelegate.h"

#include <QApplication>
#include <QMouseEvent>
#include <QPainter>
#include <QStyleOptionButton>

namespace quillorn::detail {

namespace {

QStyleOptionButton buttonOption(const QStyleOptionViewItem &option, const QModelIndex &index)
{
    QStyleOptionButton button;
    button.rect = option.rect.adjusted(2, 1, -2, -1);
    button.text = index.data().toString();
    button.state = QStyle::State_Enabled | QStyle::State_Raised;
    button.palette = option.palette;
    button.fontMetrics = option.fontMetrics;
    return button;
}

} // namespace

void ShowFolderDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option,
                               const QModelIndex &index) const
{
    const QStyleOptionButton button = buttonOption(option, index);
    QStyle *style = option.widget ? option.widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_PushButton, &button, painter, option.widget);
}

QSize ShowFolderDelegate::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    const QStyleOptionButton button = buttonOption(option, index);
    QStyle *style = option.widget ? option.widget->style() : QApplication::style();
    const QSize text = option.fontMetrics.size(Qt::TextSingleLine, button.text);
    return style->sizeFromContents(QStyle::CT_PushButton, &button, text + QSize(12, 0), option.widget);
}

bool ShowFolderDelegate::editorEvent(QEvent *event, QAbstractItemModel *, const QStyleOptionViewItem &option,
                                     const QModelIndex &index)
{
    if (event->type() != QEvent::MouseButtonRelease)
        return false;
    const auto *mouse = static_cast<QMouseEvent *>(event);
    if (mouse->button() != Qt::LeftButton || !option.rect.contains(mouse->position().toPoint()))
        return false;
    Q_EMIT clicked(index.row());
    return true;
}

} // namespace quillorn::detail

#pragma once

#include <QStyledItemDelegate>

namespace quillorn::detail {

// Draws a cell as a push button showing its text and reports a click on it,
// so that a list of thousands of hits needs no widget per row.
class ShowFolderDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    bool editorEvent(QEvent *event, QAbstractItemModel *model, const QStyleOptionViewItem &option,
                     const QModelIndex &index) override;

Q_SIGNALS:
    void clicked(int row);
};

} // namespace quillorn::detail

#pragma once

#include "model/commandertheme.h"

#include <QWidget>

class QLabel;

namespace quillorn {

class CommanderModel;

// The line under the queue: a green dot, the model's status text and the
// fixed keyboard hint.
class StatusLine : public QWidget {
    Q_OBJECT
public:
    explicit StatusLine(CommanderModel &model, QWidget *parent = nullptr);

    void setTheme(CommanderTheme theme);
    QString statusText() const;

    static inline const QString hint =
        QStringLiteral("TAB Switch pane   \u2022   SPACE Tag and advance   \u2022   Ctrl+R Refresh");

private:
    QLabel *m_status = nullptr;
    QLabel *m_hint = nullptr;
};

} // namespace quillorn

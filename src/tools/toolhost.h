#pragma once

#include "model/toolsheet.h"
#include "tools/sheetcontext.h"

#include <QDialog>
#include <QObject>
#include <QPointer>
#include <functional>
#include <optional>

class QWidget;

namespace quillorn {

class CommanderModel;

// Shows the tool sheet the model asks for (`CommanderModel::tool`) as a
// window-modal dialog over the main window, in one frame for all sheets: 20
// points of padding, at least 620 × 300, the theme's window colour and accent.
// However a sheet closes — its own buttons, Escape, the window closing it, or
// the model dropping the request — the model's tool goes back to none.
class ToolHost : public QObject {
    Q_OBJECT
public:
    ToolHost(CommanderModel &model, QWidget *window);
    ~ToolHost() override;

    // The dialog shown now, if any.
    QDialog *sheet() const { return m_dialog; }
    // For the sheets shown from now on.
    void setServices(SheetServices services) { m_services = std::move(services); }

    static constexpr int padding = 20;
    static constexpr int minimumWidth = 620;
    static constexpr int minimumHeight = 300;

private:
    void follow();
    void present(const ToolSheet &tool);
    void close();
    QWidget *buildContent(const ToolSheet &tool, const std::function<void()> &dismiss);

    CommanderModel &m_model;
    QWidget *m_window;
    QPointer<QDialog> m_dialog;
    std::optional<ToolSheet> m_shown;
    SheetServices m_services;
};

} // namespace quillorn

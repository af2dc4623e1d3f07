#include "tools/toolhost.h"

#include "model/commandermodel.h"
#include "model/commanderthemecolours.h"
#include "platform/desktop/serveraddress.h"
#include "tools/archivesheet.h"
#include "tools/comparesheet.h"
#include "tools/connectsheet.h"
#include "tools/editorsheet.h"
#include "tools/infosheet.h"
#include "tools/multirenamesheet.h"
#include "tools/searchsheet.h"
#include "tools/sheetcontext.h"
#include "tools/transfersheet.h"
#include "tools/trashsheet.h"

#include <QCoreApplication>
#include <QDialog>
#include <QTimer>
#include <QVBoxLayout>

namespace quillorn {

namespace {

// One overload per kind of ToolSheet, reached through std::visit: a kind added
// to ToolSheet without its sheet here does not compile. A null sheet would
// make the host drop the request at once.

QWidget *makeSheet(const ToolSheet::Transfer &transfer, SheetContext &context)
{
    return new TransferSheet(transfer.sources, transfer.destination, transfer.move, context.model.queue(),
                             context.dismiss);
}

QWidget *makeSheet(const ToolSheet::Search &search, SheetContext &context)
{
    CommanderModel &model = context.model;
    // Showing a hit's folder, at the hit, and closing the sheet are one step.
    return new SearchSheet(
        search.root,
        [&model](const std::filesystem::path &hit) {
            model.active().reveal(hit);
            model.setTool(std::nullopt);
        },
        context.dismiss);
}

QWidget *makeSheet(const ToolSheet::Compare &compare, SheetContext &context)
{
    return new CompareSheet(compare.left, compare.right, context.dismiss,
                            [&model = context.model](const QString &title, Job job) {
                                model.queue().enqueue(title, std::move(job));
                            });
}

QWidget *makeSheet(const ToolSheet::Info &info, SheetContext &context)
{
    return new InfoSheet(info.item, context.dismiss);
}

QWidget *makeSheet(const ToolSheet::Editor &editor, SheetContext &context)
{
    EditorSheet::Actions actions;
    actions.dismiss = context.dismiss;
    actions.openFile = context.services.openFile;
    actions.unsavedChanged = context.services.unsavedEditor;
    // What Ctrl+Q and the platform ask for; the quit guard answers it.
    actions.quit = [] {
        QCoreApplication::postEvent(QCoreApplication::instance(), new QEvent(QEvent::Quit));
    };
    return new EditorSheet(editor.file, std::move(actions));
}

QWidget *makeSheet(const ToolSheet::Archive &archive, SheetContext &context)
{
    return new ArchiveSheet(archive.archive, context.model.other().directory(), context.model.queue(),
                            context.dismiss);
}

QWidget *makeSheet(const ToolSheet::Connect &, SheetContext &context)
{
    return new ConnectSheet(context.dismiss, &handServerAddressToDesktop);
}

QWidget *makeSheet(const ToolSheet::MultiRename &rename, SheetContext &context)
{
    return new MultiRenameSheet(rename.folder, rename.items, context.model.queue(), context.dismiss);
}

QWidget *makeSheet(const ToolSheet::Trash &trash, SheetContext &context)
{
    return new TrashSheet(context.model, trash.volumes, context.dismiss);
}

} // namespace

ToolHost::ToolHost(CommanderModel &model, QWidget *window) : QObject(window), m_model(model), m_window(window)
{
    connect(&m_model, &CommanderModel::toolChanged, this, &ToolHost::follow);
    follow();
}

ToolHost::~ToolHost()
{
    if (m_dialog) {
        m_dialog->disconnect(this);
        delete m_dialog;
    }
}

void ToolHost::follow()
{
    const std::optional<ToolSheet> &tool = m_model.tool();
    if (!tool) {
        close();
        return;
    }
    // The same request again changes nothing; a new payload replaces the sheet.
    if (m_dialog && m_shown == tool)
        return;
    close();
    present(*tool);
}

void ToolHost::close()
{
    m_shown.reset();
    if (!m_dialog)
        return;
    QDialog *dialog = m_dialog;
    m_dialog = nullptr;
    dialog->disconnect(this);
    dialog->close();
    dialog->deleteLater();
    // Closed by the model (a search hit's folder shown, the request dropped):
    // the keyboard goes back to the window as when the sheet closes itself.
    if (m_window)
        m_window->activateWindow();
}

void ToolHost::present(const ToolSheet &tool)
{
    auto *dialog = new QDialog(m_window);
    dialog->setObjectName(QStringLiteral("toolSheet"));
    dialog->setWindowModality(Qt::WindowModal);
    dialog->setMinimumSize(minimumWidth, minimumHeight);
    dialog->setWindowTitle(m_window ? m_window->windowTitle() : QString());

    // The frame: the main window's dark palette, with the sheet colours of its theme.
    const CommanderThemeColours palette = colours(CommanderThemeKey::value(m_window));
    QPalette frame = m_window ? m_window->palette() : dialog->palette();
    frame.setColor(QPalette::Window, palette.window);
    frame.setColor(QPalette::Highlight, palette.accent);
    frame.setColor(QPalette::Link, palette.accent);
    dialog->setPalette(frame);
    dialog->setAutoFillBackground(true);

    QPointer<QDialog> guard(dialog);
    QWidget *content = buildContent(tool, [guard] {
        if (guard)
            guard->accept();
    });
    if (!content) {
        delete dialog;
        // Nothing to show for this kind yet: drop the request once the
        // current change has reached everyone who follows the model.
        QTimer::singleShot(0, this, [this, tool] {
            if (m_model.tool() == tool)
                m_model.setTool(std::nullopt);
        });
        return;
    }
    auto *layout = new QVBoxLayout(dialog);
    layout->setContentsMargins(padding, padding, padding, padding);
    layout->addWidget(content);

    // Every way of closing ends here: buttons, Escape, the window's close.
    connect(dialog, &QDialog::finished, this, [this, dialog] {
        if (m_dialog != dialog)
            return;
        m_dialog = nullptr;
        m_shown.reset();
        dialog->deleteLater();
        m_model.setTool(std::nullopt);
        // The keyboard goes back to the window at once, also where no window
        // manager would hand it back.
        if (m_window)
            m_window->activateWindow();
    });
    m_dialog = dialog;
    m_shown = tool;
    dialog->open();
    content->setFocus();
}

QWidget *ToolHost::buildContent(const ToolSheet &tool, const std::function<void()> &dismiss)
{
    SheetContext context{m_model, dismiss, m_services};
    return std::visit([&context](const auto &sheet) { return makeSheet(sheet, context); }, tool.value);
}

} // namespace quillorn

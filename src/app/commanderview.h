#pragma once

#include "model/commandermodel.h"
#include "model/commandertheme.h"

#include <QMainWindow>

#include <memory>

class QSplitter;

namespace quillorn {

class FilePane;
class Preferences;

// The main window: the application's one CommanderModel and its two panes side
// by side, the active one outlined, in the chosen theme. It answers the panes'
// callbacks: a press activates a pane, a double click opens an entry through the
// model (a folder is entered, a file opened), dropped files go to the transfer
// sheet as a copy into that pane's folder.
class CommanderView : public QMainWindow {
    Q_OBJECT
public:
    // options.panes.preferences also supplies the stored theme (nullptr: the
    // standard store); desktop services left empty are the real ones.
    explicit CommanderView(CommanderModelOptions options = {}, QWidget *parent = nullptr);
    ~CommanderView() override;

    CommanderModel &model() const { return *m_model; }
    FilePane *leftPane() const { return m_leftPane; }
    FilePane *rightPane() const { return m_rightPane; }

    CommanderTheme theme() const { return m_theme; }
    // Recolours the window and both panes.
    void applyTheme(CommanderTheme theme);

private:
    FilePane *makePane(PaneModel &pane, bool left);
    void showActivePane();

    std::unique_ptr<CommanderModel> m_model;
    CommanderTheme m_theme = CommanderThemeKey::defaultValue;
    QSplitter *m_splitter = nullptr;
    FilePane *m_leftPane = nullptr;
    FilePane *m_rightPane = nullptr;
};

} // namespace quillorn

#pragma once

#include "tools/detail/textsearch.h"

#include <QWidget>

class QCheckBox;
class QLabel;
class QLineEdit;

namespace quillorn::detail {

class EditorView;

// Find and replace in the editor's text, below it: a match found is selected
// in the text, which keeps its place on screen around it. The field searches
// as it is typed, from where the text's cursor was; Return finds the next
// match, Shift+Return the one before, Escape closes the bar and gives the
// keyboard back to the text at the match. Replace all is one step of undo.
class FindBar : public QWidget {
    Q_OBJECT
public:
    explicit FindBar(EditorView *view, QWidget *parent = nullptr);

    // Shows the bar with the keyboard in its field, which takes the selection if it is short.
    void open();
    void close();
    bool findNext(bool backward = false);
    void replace();
    void replaceAll();

    SearchQuery query() const;
    QString state() const;

protected:
    void keyPressEvent(QKeyEvent *event) override;

private:
    void searchAsTyped();
    void setState(const QString &text);

    EditorView *m_view;
    QLineEdit *m_find = nullptr;
    QLineEdit *m_replace = nullptr;
    QCheckBox *m_matchCase = nullptr;
    QCheckBox *m_wholeWords = nullptr;
    QCheckBox *m_expression = nullptr;
    QLabel *m_state = nullptr;
    TextPosition m_origin; // where searching as typed starts
};

} // namespace quillorn::detail

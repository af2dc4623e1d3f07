#pragma once

#include <Qt>

class QInputMethodEvent;
class QKeyEvent;
class QVariant;

namespace quillorn::detail {

class EditorView;

// What a key or an input method does in the editor's text view. A key moves
// the cursor (with Shift, the selection's end), edits, or is left to the sheet
// (Escape, Ctrl+S, Ctrl+F); keys are matched by the platform's standard key
// sequences, so they are the ones every other text field takes. An input
// method's composition is shown at the cursor and enters the text once committed.
class EditorInput {
public:
    explicit EditorInput(EditorView &view) : m_view(view) {}

    // Whether the text takes the key rather than a shortcut of the window.
    static bool takes(const QKeyEvent &key);
    bool handle(const QKeyEvent &event);
    bool compose(const QInputMethodEvent &event);
    // What the input method asks of the text; invalid for what the widget answers itself.
    static QVariant answer(const EditorView &view, Qt::InputMethodQuery query);

private:
    bool move(const QKeyEvent &event);
    bool edit(const QKeyEvent &event);

    EditorView &m_view;
};

} // namespace quillorn::detail

#pragma once

#include "platform/desktop/mimeapplications.h"

#include <QDialog>
#include <functional>
#include <optional>
#include <vector>

class QLineEdit;
class QListWidget;
class QPushButton;

namespace quillorn {

// "Other application…": every installed application by name, narrowed as the
// user types into the filter field; Return or a double click opens with the
// current one, Escape cancels. Up and Down in the field move through the list,
// so the keyboard never has to leave it. Opens modal over its window without
// a nested event loop and deletes itself when closed.
class ApplicationChooser : public QDialog {
    Q_OBJECT
public:
    using Chosen = std::function<void(const DesktopApplication &)>;

    ApplicationChooser(std::vector<DesktopApplication> applications, Chosen chosen, QWidget *parent);
    // Builds, opens and returns one; `chosen` runs when the user picks one.
    static ApplicationChooser *offer(std::vector<DesktopApplication> applications, Chosen chosen,
                                     QWidget *parent);

    // The highlighted application among those shown; none when nothing is shown.
    std::optional<DesktopApplication> current() const;
    QLineEdit *filterField() const { return m_filter; }
    QListWidget *list() const { return m_list; }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void applyFilter(const QString &text);
    void updateButton();

    std::vector<DesktopApplication> m_applications;
    Chosen m_chosen;
    QLineEdit *m_filter = nullptr;
    QListWidget *m_list = nullptr;
    QPushButton *m_open = nullptr;
};

} // namespace quillorn

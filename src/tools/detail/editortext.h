#pragma once

#include <QString>
#include <QStringView>

namespace quillorn::detail {

// How a document's text is shown in the editor and taken back byte for byte.
// The editor breaks lines at line feeds only. A file whose every line ends in
// CR LF, or whose every line ends in a lone CR, is shown with line feeds and
// gets its own breaks back; in any other file each carriage return stays a
// character of its line, drawn as a mark. Nothing else is changed, so every
// text comes back as it went in.
class EditorText {
public:
    static EditorText forText(QStringView text);

    QString shown(const QString &text) const;
    QString taken(const QString &shown) const;
    // The UTF-8 length of the text that `shown` stands for.
    qsizetype utf8Bytes(QStringView shown) const;
    // Pasted text with its line breaks as the editor shows this file's: CR LF
    // becomes a break everywhere, a lone CR where the file's lines end in one.
    QString pasted(QString text) const;

private:
    enum class Lines { plain, crlf, cr };
    explicit EditorText(Lines lines) : m_lines(lines) {}
    Lines m_lines;
};

} // namespace quillorn::detail

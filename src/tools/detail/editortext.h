#pragma once

#include <QString>
#include <QStringView>
#include <optional>

namespace quillorn::detail {

// How a document's text is shown in a QPlainTextEdit and taken back byte for
// byte. The editor keeps line feeds only (it reads CR and CR LF as line
// breaks), so a file of CR LF lines is shown with line feeds and gets its CRs
// back, and a file with other carriage returns shows each as ␍ (U+240D).
class EditorText {
public:
    // None when the text cannot be shown without loss (it holds ␍ itself next
    // to a carriage return that needs it).
    static std::optional<EditorText> forText(const QString &text);

    QString shown(const QString &text) const;
    QString taken(const QString &shown) const;
    // The UTF-8 length of the text that `shown` stands for.
    qsizetype utf8Bytes(QStringView shown) const;

private:
    enum class Lines { plain, crlf, markedCr };
    explicit EditorText(Lines lines) : m_lines(lines) {}
    Lines m_lines;
};

} // namespace quillorn::detail

#include "tools/archivesheet.h"

#include "platform/core/displaytext.h"
#include "services/archivecatalog.h"
#include "services/archiveextraction.h"
#include "services/archivetools.h"
#include "services/archiveunpacking.h"
#include "services/errortext.h"
#include "services/transferqueue.h"
#include "tools/backgroundwork.h"
#include "tools/detail/archivemembermodel.h"
#include "tools/detail/sheetbutton.h"

#include <QFontDatabase>
#include <QHBoxLayout>
#include <QItemSelectionModel>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QStringDecoder>
#include <QTextBoundaryFinder>
#include <QVBoxLayout>

namespace quillorn {

ArchiveSheet::ArchiveSheet(Path url, Path destination, TransferQueue &queue, std::function<void()> dismiss,
                           QWidget *parent)
    : QWidget(parent), m_url(std::move(url)),
      m_zip(ArchiveCatalog::kind(m_url) != ArchiveCatalog::Kind::other),
      m_destination(std::move(destination)), m_queue(queue), m_dismiss(std::move(dismiss))
{
    if (!m_zip)
        m_status = otherInitialStatus;
    setObjectName(QStringLiteral("archiveSheet"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);

    auto *header = new QLabel((m_zip ? QStringLiteral("ZIP \u00b7 ") : QStringLiteral("Archive \u00b7 ")) +
                                  displayName(m_url),
                              this);
    header->setObjectName(QStringLiteral("sheetTitle"));
    QFont headerFont = header->font();
    headerFont.setBold(true);
    header->setFont(headerFont);
    layout->addWidget(header);

    m_filter = new QLineEdit(this);
    m_filter->setObjectName(QStringLiteral("filterField"));
    m_filter->setPlaceholderText(QStringLiteral("Filter member paths"));
    layout->addWidget(m_filter);

    m_statusLabel = new QLabel(m_status, this);
    m_statusLabel->setObjectName(QStringLiteral("statusLabel"));
    m_statusLabel->setWordWrap(true);
    m_statusLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(m_statusLabel);

    m_members = new detail::ArchiveMemberModel(this);
    m_list = new QListView(this);
    m_list->setObjectName(QStringLiteral("memberList"));
    m_list->setModel(m_members);
    m_list->setUniformItemSizes(true); // a hundred thousand rows lay out at once
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_list->setTextElideMode(Qt::ElideMiddle);
    layout->addWidget(m_list, 2);

    m_previewText = new QPlainTextEdit(this);
    m_previewText->setObjectName(QStringLiteral("previewText"));
    m_previewText->setReadOnly(true);
    m_previewText->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    QFont mono = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    mono.setPointSizeF(mono.pointSizeF() * 0.85);
    m_previewText->setFont(mono);
    layout->addWidget(m_previewText, 3);

    auto *buttons = new QHBoxLayout;
    m_previewButton =
        detail::sheetButton(QStringLiteral("Preview text"), QStringLiteral("previewButton"), this);
    m_extractButton = detail::sheetButton(QStringLiteral("Extract file to opposite pane"),
                                          QStringLiteral("extractButton"), this);
    auto *closeButton = detail::sheetButton(QStringLiteral("Close"), QStringLiteral("closeButton"), this);
    buttons->addWidget(m_previewButton);
    buttons->addWidget(m_extractButton);
    if (!m_zip) {
        m_extractAllButton = detail::sheetButton(QStringLiteral("Extract all to opposite pane"),
                                                 QStringLiteral("extractAllButton"), this);
        buttons->addWidget(m_extractAllButton);
        connect(m_extractAllButton, &QPushButton::clicked, this, &ArchiveSheet::extractAll);
    }
    buttons->addStretch(1);
    buttons->addWidget(closeButton);
    layout->addLayout(buttons);

    connect(m_filter, &QLineEdit::textChanged, this, &ArchiveSheet::setFilter);
    connect(m_list->selectionModel(), &QItemSelectionModel::currentChanged, this,
            &ArchiveSheet::followSelection);
    connect(m_list, &QListView::activated, this, [this] { readMember(false); });
    connect(m_previewButton, &QPushButton::clicked, this, [this] { readMember(false); });
    connect(m_extractButton, &QPushButton::clicked, this, [this] { readMember(true); });
    connect(closeButton, &QPushButton::clicked, this, [this] {
        if (m_dismiss)
            m_dismiss();
    });
    updateButtons();
    setFocusProxy(m_filter);

    runInBackground(
        this,
        [url = m_url, zip = m_zip] { return zip ? ArchiveTools::list(url) : ArchiveCatalog::list(url); },
        [this](std::vector<ZipEntry> entries) { listed(std::move(entries)); },
        [this](const std::exception_ptr &error) { setStatus(userFacingDescription(error)); });
}

void ArchiveSheet::listed(std::vector<ZipEntry> entries)
{
    const std::size_t count = entries.size();
    m_members->setEntries(std::move(entries));
    reselect();
    setStatus(QString::number(count) +
              QStringLiteral(" members. Select individual files to preview or extract (16 MB limit)."));
}

void ArchiveSheet::setFilter(const QString &filter)
{
    if (m_filter->text() != filter)
        m_filter->setText(filter); // comes back here through textChanged
    m_refiltering = true;
    m_members->setFilter(filter);
    reselect();
    m_refiltering = false;
}

void ArchiveSheet::reselect()
{
    // The filter hides rows; the member chosen stays chosen, shown or not.
    const int row = m_selected ? m_members->rowOf(*m_selected) : -1;
    if (row >= 0)
        m_list->selectionModel()->setCurrentIndex(m_members->index(row), QItemSelectionModel::ClearAndSelect);
}

void ArchiveSheet::followSelection()
{
    if (m_refiltering)
        return;
    const QModelIndex current = m_list->selectionModel()->currentIndex();
    if (current.isValid())
        m_selected = m_members->entry(current.row()).name;
    updateButtons();
}

void ArchiveSheet::select(const QString &name)
{
    const int row = m_members->rowOf(name);
    if (row >= 0)
        m_list->selectionModel()->setCurrentIndex(m_members->index(row), QItemSelectionModel::ClearAndSelect);
}

QStringList ArchiveSheet::shownNames() const
{
    QStringList names;
    for (int row = 0; row < m_members->rowCount(); ++row)
        names << m_members->entry(row).name;
    return names;
}

void ArchiveSheet::readMember(bool extract)
{
    if (!m_selected || m_loading)
        return;
    setLoading(true);
    const QString name = *m_selected;
    std::string stored;
    for (const ZipEntry &entry : m_members->entries())
        if (entry.name == name)
            stored = entry.bytes;
    runInBackground(
        this,
        [name, stored, url = m_url, zip = m_zip] {
            return zip ? ArchiveTools::member(name, url) : ArchiveCatalog::member(stored, url);
        },
        [this, name, extract](const QByteArray &bytes) { memberRead(name, extract, bytes); },
        [this](const std::exception_ptr &error) {
            setLoading(false);
            setStatus(userFacingDescription(error));
        });
}

void ArchiveSheet::memberRead(const QString &name, bool extract, const QByteArray &bytes)
{
    setLoading(false);
    if (!extract) {
        QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
        const QString text = decoder.decode(bytes);
        setPreview(decoder.hasError() ? binary : leadingCharacters(text, previewCharacters));
        return;
    }
    const ArchiveExtraction extraction{m_url, name, m_destination, std::make_shared<const QByteArray>(bytes)};
    m_queue.enqueue(extraction.title(), extraction);
    setStatus(QStringLiteral("Queued extraction to ") + displayText(m_destination) +
              QStringLiteral(". Existing names are refused."));
}

void ArchiveSheet::extractAll()
{
    if (m_zip)
        return;
    const ArchiveUnpackJob job{m_url, m_destination};
    m_queue.enqueue(job.title(), job);
    setStatus(QStringLiteral("Queued extraction of the whole archive into a new folder of ") +
              displayText(m_destination) + QStringLiteral("."));
}

QString ArchiveSheet::leadingCharacters(const QString &text, qsizetype count)
{
    if (text.size() <= count) // never more characters than code units
        return text;
    QTextBoundaryFinder boundaries(QTextBoundaryFinder::Grapheme, text);
    qsizetype end = 0;
    for (qsizetype seen = 0; seen < count; ++seen) {
        end = boundaries.toNextBoundary();
        if (end < 0)
            return text;
    }
    return text.left(end);
}

void ArchiveSheet::setStatus(const QString &status)
{
    m_status = status;
    m_statusLabel->setText(status);
}

void ArchiveSheet::setPreview(const QString &preview)
{
    m_preview = preview;
    m_previewText->setPlainText(preview);
}

void ArchiveSheet::setLoading(bool loading)
{
    m_loading = loading;
    // A disabled button passes the keyboard on to the next one, "Close", where
    // the next Space would close the sheet: the member list holds it while the
    // member is read, and the button pressed has it back afterwards.
    QWidget *focused = window()->focusWidget();
    if (loading && (focused == m_previewButton || focused == m_extractButton)) {
        m_pressed = static_cast<QPushButton *>(focused);
        m_list->setFocus();
    }
    updateButtons();
    if (!loading && m_pressed) {
        if (focused == m_list)
            m_pressed->setFocus();
        m_pressed = nullptr;
    }
}

void ArchiveSheet::updateButtons()
{
    const bool ready = m_selected && !m_loading;
    m_previewButton->setEnabled(ready);
    m_extractButton->setEnabled(ready);
}

} // namespace quillorn

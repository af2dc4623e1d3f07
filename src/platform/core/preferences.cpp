#include "platform/core/preferences.h"

#include <QStringDecoder>

namespace quillorn {

namespace {

// Valid UTF-8 as text, anything else as its bytes.
QVariant storedPath(const std::filesystem::path &path)
{
    const QByteArray bytes = QByteArray::fromStdString(path.native());
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = decoder(bytes);
    if (decoder.hasError())
        return bytes;
    return text;
}

std::optional<std::filesystem::path> pathFrom(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::QString:
        return std::filesystem::path(value.toString().toUtf8().toStdString());
    case QMetaType::QByteArray:
        return std::filesystem::path(value.toByteArray().toStdString());
    default:
        return std::nullopt;
    }
}

// INI files hold every scalar as text, so a stored value reads back as a
// string; values set in this process are still typed. Both forms count.
std::optional<bool> asBoolean(const QVariant &value)
{
    if (value.typeId() == QMetaType::Bool)
        return value.toBool();
    if (value.typeId() == QMetaType::QString) {
        const QString text = value.toString();
        if (text == QLatin1String("true"))
            return true;
        if (text == QLatin1String("false"))
            return false;
    }
    return std::nullopt;
}

} // namespace

Preferences &Preferences::standard()
{
    static Preferences store;
    return store;
}

// The native format is an INI file named .conf on Linux (and the property
// list on macOS), which is the file the documentation promises.
Preferences::Preferences()
    : m_settings(std::make_unique<QSettings>(QSettings::NativeFormat, QSettings::UserScope,
                                             QStringLiteral("Quillorn"), QStringLiteral("Quillorn")))
{
}

Preferences::Preferences(const QString &iniPath)
    : m_settings(std::make_unique<QSettings>(iniPath, QSettings::IniFormat))
{
}

Preferences::~Preferences() = default;

bool Preferences::contains(const QString &key) const
{
    return m_settings->contains(key);
}

QStringList Preferences::stringList(const QString &key, const QStringList &fallback) const
{
    const QVariant value = m_settings->value(key);
    switch (value.typeId()) {
    case QMetaType::QStringList:
        return value.toStringList();
    case QMetaType::QString:
        // A list of one element is written as plain text in INI files.
        return QStringList{value.toString()};
    case QMetaType::QVariantList: {
        QStringList result;
        for (const QVariant &item : value.toList()) {
            if (item.typeId() != QMetaType::QString)
                return fallback;
            result.append(item.toString());
        }
        return result;
    }
    default:
        return fallback;
    }
}

int Preferences::integer(const QString &key, int fallback) const
{
    const QVariant value = m_settings->value(key);
    if (value.typeId() == QMetaType::Int)
        return value.toInt();
    if (value.typeId() != QMetaType::QString)
        return fallback;
    bool ok = false;
    const int result = value.toString().trimmed().toInt(&ok);
    return ok ? result : fallback;
}

QString Preferences::text(const QString &key, const QString &fallback) const
{
    const QVariant value = m_settings->value(key);
    return value.typeId() == QMetaType::QString ? value.toString() : fallback;
}

bool Preferences::boolean(const QString &key, bool fallback) const
{
    return booleanValue(key).value_or(fallback);
}

bool Preferences::isBoolean(const QString &key) const
{
    return booleanValue(key).has_value();
}

std::optional<bool> Preferences::booleanValue(const QString &key) const
{
    return asBoolean(m_settings->value(key));
}

std::vector<std::filesystem::path> Preferences::pathList(const QString &key) const
{
    const QVariant value = m_settings->value(key);
    QVariantList items;
    switch (value.typeId()) {
    case QMetaType::QStringList:
    case QMetaType::QVariantList:
        items = value.toList();
        break;
    default:
        // A list of one element is stored as the element itself.
        items = {value};
        break;
    }
    std::vector<std::filesystem::path> paths;
    for (const QVariant &item : items) {
        const std::optional<std::filesystem::path> path = pathFrom(item);
        if (!path)
            return {};
        paths.push_back(*path);
    }
    return paths;
}

std::optional<std::filesystem::path> Preferences::path(const QString &key) const
{
    return pathFrom(m_settings->value(key));
}

void Preferences::setPathList(const QString &key, const std::vector<std::filesystem::path> &value)
{
    // QSettings writes an empty list as "@Invalid()"; no key reads back the same.
    if (value.empty()) {
        m_settings->remove(key);
        return;
    }
    QVariantList items;
    bool allText = true;
    for (const std::filesystem::path &path : value) {
        items.append(storedPath(path));
        allText = allText && items.back().typeId() == QMetaType::QString;
    }
    // QSettings writes a mixed list of one element as an opaque binary blob;
    // the element alone stays readable.
    if (allText)
        m_settings->setValue(key, QVariant(items).toStringList());
    else if (items.size() == 1)
        m_settings->setValue(key, items.front());
    else
        m_settings->setValue(key, items);
}

void Preferences::setPath(const QString &key, const std::filesystem::path &value)
{
    m_settings->setValue(key, storedPath(value));
}

void Preferences::setStringList(const QString &key, const QStringList &value)
{
    m_settings->setValue(key, value);
}

void Preferences::setInteger(const QString &key, int value)
{
    m_settings->setValue(key, value);
}

void Preferences::setText(const QString &key, const QString &value)
{
    m_settings->setValue(key, value);
}

void Preferences::setBoolean(const QString &key, bool value)
{
    m_settings->setValue(key, value);
}

void Preferences::remove(const QString &key)
{
    m_settings->remove(key);
}

void Preferences::sync()
{
    m_settings->sync();
}

QString Preferences::fileName() const
{
    return m_settings->fileName();
}

} // namespace quillorn

#include "platform/core/preferences.h"

namespace quillorn {

namespace {

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

Preferences::Preferences()
    : m_settings(std::make_unique<QSettings>(QSettings::IniFormat, QSettings::UserScope,
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

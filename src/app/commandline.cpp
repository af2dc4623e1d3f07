#include "app/commandline.h"

#include "platform/core/displaytext.h"
#include "platform/desktop/fileurl.h"
#include "quillorn/version.h"

#include <QCommandLineParser>
#include <QRegularExpression>
#include <set>
#include <string_view>

namespace quillorn {

namespace {

const QString program = QStringLiteral("quillorn");

// "smb://host/share", "sftp:…", "trash:///": anything with a scheme that is not
// file. A single letter before the colon is a drive name, never a scheme here.
bool hasOtherScheme(const QByteArray &argument)
{
    static const QRegularExpression scheme(QStringLiteral("^[A-Za-z][A-Za-z0-9+.-]+:"));
    return scheme.match(QString::fromLatin1(argument)).hasMatch() && !argument.toLower().startsWith("file:");
}

// The toolkit's own options ("-platform offscreen", "-style Fusion"), which the
// application object reads later: passed over here with their values.
int toolkitOption(const std::string &argument)
{
    static const std::set<std::string, std::less<>> withValue{"platform",
                                                              "platformpluginpath",
                                                              "platformtheme",
                                                              "plugin",
                                                              "qwindowgeometry",
                                                              "qwindowtitle",
                                                              "qwindowicon",
                                                              "session",
                                                              "style",
                                                              "stylesheet",
                                                              "display",
                                                              "geometry",
                                                              "name",
                                                              "title",
                                                              "font",
                                                              "fn",
                                                              "bg",
                                                              "background",
                                                              "fg",
                                                              "foreground",
                                                              "btn",
                                                              "button",
                                                              "im",
                                                              "inputstyle",
                                                              "visual",
                                                              "ncols",
                                                              "cmap"};
    static const std::set<std::string, std::less<>> alone{"reverse", "widgetcount", "nograb", "dograb",
                                                          "sync"};
    std::string_view name = argument;
    if (name.starts_with("--"))
        name.remove_prefix(2);
    else if (name.starts_with('-'))
        name.remove_prefix(1);
    else
        return 0;
    if (alone.contains(name))
        return 1;
    return withValue.contains(name) ? 2 : 0;
}

} // namespace

CommandLine CommandLine::parse(const std::vector<std::string> &arguments,
                               const std::filesystem::path &workingFolder)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("A keyboard-driven two-pane file manager."));
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption version = parser.addVersionOption();
    parser.addPositionalArgument(QStringLiteral("items"),
                                 QStringLiteral("Folders to open in new tabs, files to show in their folder "
                                                "(paths or file:// URIs)."),
                                 QStringLiteral("[DIR|FILE|URI…]"));

    // The options are read by the parser from decoded text; the items are taken
    // from the bytes themselves, after the same rules ("--" ends the options).
    QStringList decoded{program};
    std::vector<std::string> items;
    bool optionsEnded = false;
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        const std::string &argument = arguments[index];
        if (const int taken = optionsEnded ? 0 : toolkitOption(argument)) {
            index += static_cast<std::size_t>(taken - 1);
            continue;
        }
        decoded << QString::fromLocal8Bit(argument);
        if (optionsEnded || argument == "-" || argument.empty() || argument.front() != '-')
            items.push_back(argument);
        else if (argument == "--")
            optionsEnded = true;
    }

    CommandLine result;
    result.exitNow = true;
    if (!parser.parse(decoded)) {
        result.status = 2;
        result.errorOutput = program + QStringLiteral(": ") + parser.errorText() + QLatin1Char('\n');
        return result;
    }
    if (parser.isSet(help)) {
        // The parser names the program after the application object, which
        // does not exist yet here.
        result.output = parser.helpText().replace(QRegularExpression(QStringLiteral("^Usage: \\S+")),
                                                  QStringLiteral("Usage: ") + program);
        return result;
    }
    if (parser.isSet(version)) {
        result.output = program + QLatin1Char(' ') + QString::fromLatin1(kVersion) + QLatin1Char('\n');
        return result;
    }
    for (const std::string &item : items) {
        const QByteArray bytes = QByteArray::fromStdString(item);
        std::filesystem::path path;
        if (bytes.toLower().startsWith("file:")) {
            const auto local = pathFromFileUrl(bytes);
            if (!local) {
                result.status = 2;
                result.errorOutput = program + QStringLiteral(": cannot open ‘") +
                                     QString::fromLocal8Bit(bytes) +
                                     QStringLiteral("’: only local file:// URIs can be opened\n");
                return result;
            }
            path = *local;
        } else if (hasOtherScheme(bytes)) {
            result.status = 2;
            result.errorOutput = program + QStringLiteral(": cannot open ‘") + QString::fromLocal8Bit(bytes) +
                                 QStringLiteral("’: only folders, files and file:// URIs can be opened\n");
            return result;
        } else {
            path = item;
            if (path.is_relative())
                path = workingFolder / path;
        }
        path = path.lexically_normal();
        if (!path.has_filename() && path != path.root_path())
            path = path.parent_path();
        std::error_code error;
        if (!std::filesystem::exists(path, error)) {
            result.status = 2;
            result.errorOutput = program + QStringLiteral(": cannot open ‘") + displayText(path) +
                                 QStringLiteral("’: no such file or folder\n");
            return result;
        }
        result.targets.push_back(path);
    }
    result.exitNow = false;
    return result;
}

} // namespace quillorn

#pragma once

#include <QString>
#include <filesystem>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace quillorn {

// The tool sheet the main window is asked to show, with what it works on.
// Two sheets of the same kind share one identity (`id`) whatever they carry,
// so the window treats a new payload as the same sheet.
struct ToolSheet {
    using Path = std::filesystem::path;

    struct Transfer {
        static constexpr std::string_view id = "transfer";
        std::vector<Path> sources;
        Path destination;
        bool move = false; // true moves, false copies
        friend bool operator==(const Transfer &, const Transfer &) = default;
    };
    struct Search {
        static constexpr std::string_view id = "search";
        Path root;
        friend bool operator==(const Search &, const Search &) = default;
    };
    struct Compare {
        static constexpr std::string_view id = "compare";
        Path left;
        Path right;
        friend bool operator==(const Compare &, const Compare &) = default;
    };
    struct Editor {
        static constexpr std::string_view id = "editor";
        Path file;
        friend bool operator==(const Editor &, const Editor &) = default;
    };
    struct Info {
        static constexpr std::string_view id = "info";
        Path item;
        friend bool operator==(const Info &, const Info &) = default;
    };
    struct Archive {
        static constexpr std::string_view id = "archive";
        Path archive;
        friend bool operator==(const Archive &, const Archive &) = default;
    };
    struct Connect {
        static constexpr std::string_view id = "connect";
        friend bool operator==(const Connect &, const Connect &) = default;
    };
    struct MultiRename {
        static constexpr std::string_view id = "multiRename";
        Path folder;
        std::vector<Path> items; // in the folder, in the pane's order
        friend bool operator==(const MultiRename &, const MultiRename &) = default;
    };
    // The Trash: the home trash and those on the volumes (mount points).
    struct Trash {
        static constexpr std::string_view id = "trash";
        std::vector<Path> volumes;
        friend bool operator==(const Trash &, const Trash &) = default;
    };

    // In the order of the cases; the index is the case.
    using Case = std::variant<Transfer, Search, Compare, Editor, Info, Archive, Connect, MultiRename, Trash>;

    template <typename T>
    requires std::is_constructible_v<Case, T &&> ToolSheet(T &&sheet) : value(std::forward<T>(sheet)) {}

    Case value;

    // The case name, the `id` of the payload: "transfer", "search", "compare",
    // "editor", "info", "archive", "connect", "multiRename" or "trash".
    QString id() const;

    template <typename T> bool is() const { return std::holds_alternative<T>(value); }
    template <typename T> const T *as() const { return std::get_if<T>(&value); }

    friend bool operator==(const ToolSheet &, const ToolSheet &) = default;
};

} // namespace quillorn

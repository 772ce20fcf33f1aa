#pragma once

#include <cstddef>
#include <cstdio>
#include <source_location>
#include <string_view>

/// The folder that the compiler's names of this project's files begin with. It depends on where the project is built
/// and on the builder's own -ffile-prefix-map, which overrides a -fmacro-prefix-map; this header's name shows it.
constexpr std::string_view SourceFolder()
{
    constexpr std::string_view self = "include/SourcePlace.h";
    std::string_view path = __FILE__;
    static_assert(std::string_view(__FILE__).ends_with(self));
    path.remove_suffix(self.size());
    return path;
}

/// Writes a log line's beginning, "[file:line] signature: ". The file is the path in the project's folder; the shared
/// headers alone carry the path that they have in the device's source tree.
/// @return as snprintf().
inline int FormatPlace(char* text, std::size_t size, const std::source_location& where)
{
    std::string_view file = where.file_name();
    if (file.starts_with(SourceFolder()))
        file.remove_prefix(SourceFolder().size());
    const char* folder = file.starts_with("include/") ? "../../" : "";
    return std::snprintf(text, size, "[%s%s:%d] %s: ", folder, file.data(), static_cast<int>(where.line()),
                         where.function_name());
}

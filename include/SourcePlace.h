#pragma once

#include <cstddef>
#include <cstdio>
#include <source_location>
#include <string_view>

/// The folder at the beginning of the file names that the compiler knows. It depends on where the project is built and
/// on the builder's -ffile-prefix-map, which overrides our -fmacro-prefix-map, so it is taken from this header's name.
constexpr std::string_view SourceFolder()
{
    constexpr std::string_view self = "include/SourcePlace.h";
    std::string_view path = __FILE__;
    static_assert(std::string_view(__FILE__).ends_with(self));
    path.remove_suffix(self.size());
    return path;
}

/// Writes the beginning of a log line, "[file:line] signature: ". The file's path is relative to the project's folder;
/// only the shared headers have the path of the device's source tree.
/// @return the same as snprintf().
inline int FormatPlace(char* text, std::size_t size, const std::source_location& where)
{
    std::string_view file = where.file_name();
    if (file.starts_with(SourceFolder()))
        file.remove_prefix(SourceFolder().size());
    const char* folder = file.starts_with("include/") ? "../../" : "";
    return std::snprintf(text, size, "[%s%s:%d] %s: ", folder, file.data(), static_cast<int>(where.line()),
                         where.function_name());
}

#include "LogInterface.h"

#include "LogLevel.h"
#include "LogStream.h"
#include "SourcePlace.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr unsigned int DefaultLevel = LogLevelRequest;

constexpr char LossText[] = "Lines lost, since the log's reader did not keep up: %llu";
constexpr std::size_t LossSize = 512;

unsigned int LevelFromEnvironment()
{
    const char* value = std::getenv("KOVA_LOG_LEVEL");
    if (!value || *value < '0' || *value > '9')
        return DefaultLevel;
    char* end = nullptr;
    const unsigned long level = std::strtoul(value, &end, 10);
    return *end == '\0' && level <= UINT_MAX ? static_cast<unsigned int>(level) : DefaultLevel;
}

/// JOURNAL_STREAM names the device and inode of the journal's stream. Programs inherit the variable even if their
/// standard error is redirected, so compare.
bool StandardErrorIsJournal()
{
    const char* stream = std::getenv("JOURNAL_STREAM");
    unsigned long long device = 0;
    unsigned long long inode = 0;
    struct stat status = {};
    return stream && std::sscanf(stream, "%llu:%llu", &device, &inode) == 2 && fstat(STDERR_FILENO, &status) == 0 &&
           status.st_dev == device && status.st_ino == inode;
}

/// The journal's priority prefix (sd-daemon(3)).
const char* JournalPriority(unsigned int level)
{
    switch (level) {
    case LogLevelError: return "<3>";
    case LogLevelWarning: return "<4>";
    case LogLevelTrace: return "<7>";
    default: return "<6>";
    }
}

/// The length of the UTF-8 character at the beginning of the text; 0 if it is not well-formed (The Unicode Standard,
/// table 3-7).
std::size_t CharacterLength(std::string_view text)
{
    const auto byte = [&](std::size_t index) {
        return index < text.size() ? static_cast<unsigned char>(text[index]) : 0U;
    };
    const auto within = [&](std::size_t index, unsigned int low, unsigned int high) {
        return byte(index) >= low && byte(index) <= high;
    };
    const auto trail = [&](std::size_t index) { return within(index, 0x80, 0xbf); };

    const unsigned int lead = byte(0);
    if (lead < 0x80)
        return 1;
    if (lead >= 0xc2 && lead <= 0xdf)
        return trail(1) ? 2 : 0;
    if (lead >= 0xe0 && lead <= 0xef)
        return within(1, lead == 0xe0 ? 0xa0 : 0x80, lead == 0xed ? 0x9f : 0xbf) && trail(2) ? 3 : 0;
    if (lead >= 0xf0 && lead <= 0xf4)
        return within(1, lead == 0xf0 ? 0x90 : 0x80, lead == 0xf4 ? 0x8f : 0xbf) && trail(2) && trail(3) ? 4 : 0;
    return 0;
}

/// True for C0 controls, DEL, and C1 controls in UTF-8.
bool IsControl(std::string_view character)
{
    const auto first = static_cast<unsigned char>(character[0]);
    return first < 0x20 || first == 0x7f || (first == 0xc2 && static_cast<unsigned char>(character[1]) < 0xa0);
}

void AppendVisible(std::string& line, const char* text)
{
    static constexpr char digits[] = "0123456789abcdef";

    std::string_view rest = text ? text : "";
    while (!rest.empty()) {
        const std::size_t length = CharacterLength(rest);
        const std::string_view character = rest.substr(0, length > 0 ? length : 1);
        if (length > 0 && !IsControl(character)) {
            line += character;
        } else {
            for (const char c : character) {
                const auto byte = static_cast<unsigned char>(c);
                line += {'\\', 'x', digits[byte >> 4], digits[byte & 0xf]};
            }
        }
        rest.remove_prefix(character.size());
    }
}

/// Local time with milliseconds.
void AppendTime(std::string& line)
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local = {};
    localtime_r(&now.tv_sec, &local);

    char text[sizeof "-2147483648-12-31T23:59:59.999 "];
    std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &local);
    length += std::snprintf(text + length, sizeof text - length, ".%03ld ", now.tv_nsec / 1000000);
    line.append(text, length);
}

}

LogInterface::LogInterface(const QString& objectPath)
    : ownPath(objectPath.toStdString()),
      highestLevel(LevelFromEnvironment()),
      toJournal(StandardErrorIsJournal()),
      stream(std::make_shared<LogStream>())
{
}

void LogInterface::EmitLogString(unsigned int level, const char* text, const char* origin)
{
    if (level > highestLevel)
        return;

    const std::string line = Line(level, text, origin);
    const std::lock_guard lock(mutex);
    if (lostLines > 0) {
        char loss[LossSize];
        const int place = FormatPlace(loss, LossSize, std::source_location::current());
        std::snprintf(loss + place, LossSize - place, LossText, lostLines);
        if (stream->Write(Line(LogLevelError, loss, ownPath.c_str())))
            lostLines = 0;
    }
    if (lostLines > 0 || !stream->Write(line))
        ++lostLines;
}

std::string LogInterface::Line(unsigned int level, const char* text, const char* origin) const
{
    std::string line;
    if (toJournal)
        line += JournalPriority(level);
    else
        AppendTime(line);
    line += 'L' + std::to_string(level) + ' ';
    AppendVisible(line, origin);
    line += ' ';
    AppendVisible(line, text);
    line += '\n';
    return line;
}

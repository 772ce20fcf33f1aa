#include "Pdu.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace
{

// The default alphabet, and its extension after the escape: 3GPP TS 23.038, 6.2.1
constexpr char16_t alphabet[] = u"@£$¥èéùìòÇ\nØø\rÅåΔ_ΦΓΛΩΠΨΣΘΞ\x1b"
                                u"ÆæßÉ !\"#¤%&'()*+,-./0123456789:;<=>?"
                                u"¡ABCDEFGHIJKLMNOPQRSTUVWXYZÄÖÑÜ§¿abcdefghijklmnopqrstuvwxyzäöñüà";
static_assert(std::size(alphabet) == 128 + 1);

struct Extension {
    int code;
    char16_t character;
};

constexpr std::array<Extension, 10> extensions = {{{0x0a, u'\f'},
                                                   {0x14, u'^'},
                                                   {0x28, u'{'},
                                                   {0x29, u'}'},
                                                   {0x2f, u'\\'},
                                                   {0x3c, u'['},
                                                   {0x3d, u'~'},
                                                   {0x3e, u']'},
                                                   {0x40, u'|'},
                                                   {0x65, u'€'}}};
constexpr int Escape = 0x1b;

// 3GPP TS 23.040, 9.2.3
constexpr int TypeMask = 0x03;
constexpr int TypeDeliver = 0x00;
constexpr int TypeSubmit = 0x01;
constexpr int NoMoreMessages = 0x04;
constexpr int HasHeader = 0x40;
constexpr int ConcatenatedByte = 0x00; ///< header element with an 8-bit reference
constexpr int ConcatenatedWord = 0x08; ///< header element with a 16-bit reference
constexpr int MaxData = 140;           ///< octets
constexpr int MaxParts = 255;
constexpr int HeaderSize = 6; ///< octets, with the octet for the length
constexpr int AddressInternational = 0x91;
constexpr int AddressUnknown = 0x81;
constexpr int AddressName = 0xd0;
constexpr int MaxAddressDigits = 20;
constexpr int MaxNameSeptets = 11;
constexpr char digits[] = "0123456789*#abc";

enum class Coding { SevenBit, EightBit, Ucs2 };

/// @return the septets of a character, or nothing if the alphabet does not have it.
QByteArray Septets(QChar character)
{
    const char16_t* const end = std::end(alphabet) - 1;
    const char16_t* const found = std::find(std::begin(alphabet), end, character.unicode());
    if (found != end && *found != Escape)
        return QByteArray(1, static_cast<char>(found - alphabet));
    for (const Extension& extension : extensions) {
        if (extension.character == character.unicode())
            return QByteArray(1, Escape) + static_cast<char>(extension.code);
    }
    return {};
}

QString FromSeptets(const QByteArray& septets)
{
    QString text;
    bool escaped = false;
    for (const char septet : septets) {
        char16_t character = alphabet[septet & 0x7f];
        if (escaped) {
            for (const Extension& extension : extensions) {
                if (extension.code == septet)
                    character = extension.character;
            }
            escaped = false;
        } else if (septet == Escape) {
            escaped = true;
            continue;
        }
        text += QChar(character == Escape ? u' ' : character);
    }
    return text;
}

/// @param fill number of unused bits before the first septet.
QByteArray Pack(const QByteArray& septets, int fill)
{
    QByteArray octets((septets.size() * 7 + fill + 7) / 8, '\0');
    int bit = fill;
    for (const char septet : septets) {
        const int shifted = septet << (bit % 8);
        octets[bit / 8] = static_cast<char>(octets.at(bit / 8) | shifted);
        if (bit % 8 > 1)
            octets[bit / 8 + 1] = static_cast<char>(shifted >> 8);
        bit += 7;
    }
    return octets;
}

QByteArray Unpack(const QByteArray& octets, int count, int fill)
{
    QByteArray septets;
    for (int bit = fill; septets.size() < count && bit + 7 <= octets.size() * 8; bit += 7) {
        int value = static_cast<uchar>(octets.at(bit / 8));
        if (bit / 8 + 1 < octets.size())
            value |= static_cast<uchar>(octets.at(bit / 8 + 1)) << 8;
        septets.append(static_cast<char>((value >> (bit % 8)) & 0x7f));
    }
    return septets;
}

/// Packs two digits into each octet, the first one in the lower half.
QByteArray SwapDigits(const QByteArray& number)
{
    QByteArray octets;
    for (int i = 0; i < number.size(); i += 2) {
        const int low = static_cast<int>(std::find(digits, digits + 15, number.at(i)) - digits);
        const int high =
            i + 1 < number.size() ? static_cast<int>(std::find(digits, digits + 15, number.at(i + 1)) - digits) : 0x0f;
        octets.append(static_cast<char>(high << 4 | low));
    }
    return octets;
}

QByteArray EncodeAddress(const QString& number)
{
    const bool international = number.startsWith(QLatin1Char('+'));
    const QByteArray plain = number.mid(international ? 1 : 0).toLatin1().left(MaxAddressDigits);
    const bool isNumber =
        std::all_of(plain.begin(), plain.end(), [](char c) { return c && std::strchr(digits, c) != nullptr; });
    if (isNumber)
        return QByteArray(1, static_cast<char>(plain.size())) +
               static_cast<char>(international ? AddressInternational : AddressUnknown) + SwapDigits(plain);

    QByteArray septets;
    for (const QChar character : number) {
        const QByteArray next = Septets(character);
        if (septets.size() + next.size() <= MaxNameSeptets)
            septets += next;
    }
    const QByteArray packed = Pack(septets, 0);
    // The length is the number of half octets used.
    const int length = static_cast<int>(septets.size() * 7 + 3) / 4;
    return QByteArray(1, static_cast<char>(length)) + static_cast<char>(AddressName) + packed;
}

/// Encodes each value as two swapped digits, and the offset from UTC in quarters of an hour with its sign in bit 3
/// (3GPP TS 23.040, 9.2.3.11).
QByteArray EncodeTime(const QDateTime& time)
{
    const auto swapped = [](int value) { return static_cast<char>(value % 10 << 4 | value / 10); };
    const int quarters = time.offsetFromUtc() / 900;
    QByteArray octets;
    for (const int value : {time.date().year() % 100, time.date().month(), time.date().day(), time.time().hour(),
                            time.time().minute(), time.time().second()})
        octets.append(swapped(value));
    octets.append(static_cast<char>(swapped(std::abs(quarters)) | (quarters < 0 ? 0x08 : 0)));
    return octets;
}

QDateTime DecodeTime(const QByteArray& octets)
{
    const auto value = [&](int i) { return (octets.at(i) & 0x0f) * 10 + (static_cast<uchar>(octets.at(i)) >> 4); };
    const uchar zone = static_cast<uchar>(octets.at(6));
    const int quarters = (zone & 0x07) * 10 + (zone >> 4);
    return QDateTime(QDate(2000 + value(0), value(1), value(2)), QTime(value(3), value(4), value(5)), Qt::OffsetFromUTC,
                     (zone & 0x08 ? -quarters : quarters) * 900);
}

struct Piece {
    QByteArray data;
    int length; ///< in septets or octets, depending on the coding
};

/// Splits a text between characters into pieces that fit into a unit.
/// @param coding receives the coding that the text needs.
QList<Piece> Split(const QString& text, Coding& coding)
{
    QList<QByteArray> characters;
    coding = Coding::SevenBit;
    for (const QChar character : text) {
        characters.append(Septets(character));
        if (characters.last().isEmpty())
            coding = Coding::Ucs2;
    }
    if (coding == Coding::Ucs2) {
        characters.clear();
        for (int i = 0; i < text.size(); ++i) {
            const bool secondOfPair = i > 0 && text.at(i).isLowSurrogate() && text.at(i - 1).isHighSurrogate();
            if (!secondOfPair)
                characters.append(QByteArray());
            const char16_t unit = text.at(i).unicode();
            characters.last().append(static_cast<char>(unit >> 8)).append(static_cast<char>(unit & 0xff));
        }
    }

    const int single = coding == Coding::SevenBit ? MaxData * 8 / 7 : MaxData;
    const int shared = coding == Coding::SevenBit ? (MaxData - HeaderSize) * 8 / 7 : MaxData - HeaderSize;
    int total = 0;
    for (const QByteArray& character : characters)
        total += static_cast<int>(character.size());
    QList<Piece> pieces{{{}, 0}};
    for (const QByteArray& character : characters) {
        if (pieces.last().length + character.size() > (total <= single ? single : shared))
            pieces.append(Piece{{}, 0});
        pieces.last().data += character;
        pieces.last().length += static_cast<int>(character.size());
    }
    return pieces;
}

/// @param start the unit up to the protocol identifier; HasHeader is added to the first octet if needed.
QList<QByteArray> Encode(const QByteArray& start, const QByteArray& time, const QString& text, int reference)
{
    constexpr int DataCodingUcs2 = 0x08;
    Coding coding = Coding::SevenBit;
    const QList<Piece> pieces = Split(text, coding);
    if (pieces.size() > MaxParts)
        return {};

    QList<QByteArray> units;
    for (const Piece& piece : pieces) {
        QByteArray header;
        if (pieces.size() > 1)
            header = QByteArray("\x05\x00\x03", 3) + static_cast<char>(reference) + static_cast<char>(pieces.size()) +
                     static_cast<char>(units.size() + 1);
        const int headerBits = static_cast<int>(header.size()) * 8;
        const int fill = (7 - headerBits % 7) % 7;
        const bool septets = coding == Coding::SevenBit;
        const int length = septets ? (headerBits + fill) / 7 + piece.length : headerBits / 8 + piece.length;

        QByteArray unit = start;
        if (!header.isEmpty())
            unit[0] = static_cast<char>(unit.at(0) | HasHeader);
        unit += '\0'; // protocol identifier of a plain message
        unit += static_cast<char>(septets ? 0 : DataCodingUcs2);
        unit += time + static_cast<char>(length) + header + (septets ? Pack(piece.data, fill) : piece.data);
        units.append(QByteArray(1, '\0') + unit); // use the service centre set in the modem
    }
    return units;
}

/// Reads a unit octet by octet. Once it was read past its end, it stays bad.
class Reader
{
public:
    explicit Reader(const QByteArray& unit) : unit(unit) {}

    bool IsGood() const { return good; }
    int Octet() { return static_cast<uchar>(Octets(1).at(0)); }
    /// @return the requested number of octets; zeros if the unit has fewer.
    QByteArray Octets(int count)
    {
        good = good && count <= unit.size() - next;
        if (!good)
            return QByteArray(count, '\0');
        next += count;
        return unit.mid(next - count, count);
    }
    QByteArray Rest() const { return unit.mid(next); }

private:
    const QByteArray unit;
    int next = 0;
    bool good = true;
};

QString ReadAddress(Reader& reader)
{
    const int length = reader.Octet();
    const int type = reader.Octet();
    const QByteArray octets = reader.Octets((length + 1) / 2);
    if ((type & 0x70) == (AddressName & 0x70))
        return FromSeptets(Unpack(octets, length * 4 / 7, 0));

    QString number = (type & 0x70) == (AddressInternational & 0x70) ? QStringLiteral("+") : QString();
    for (int i = 0; i < length; ++i) {
        const int digit = static_cast<uchar>(octets.at(i / 2)) >> (i % 2 * 4) & 0x0f;
        if (digit < 0x0f)
            number += QLatin1Char(digits[digit]);
    }
    return number;
}

/// Decodes the data coding scheme (3GPP TS 23.038, 4). @return nothing for compressed text.
std::optional<Coding> DecodeScheme(int scheme)
{
    static constexpr Coding codings[] = {Coding::SevenBit, Coding::EightBit, Coding::Ucs2, Coding::SevenBit};
    const int group = scheme >> 4;
    if (group < 0x08)
        return scheme & 0x20 ? std::nullopt : std::optional(codings[scheme >> 2 & 0x03]);
    if (group == 0x0e)
        return Coding::Ucs2;
    return group == 0x0f && scheme & 0x04 ? Coding::EightBit : Coding::SevenBit;
}

/// Reads the part numbers from the header. Elements with an invalid part number are ignored (3GPP
/// TS 23.040, 9.2.3.24.1).
void ReadHeader(const QByteArray& header, Pdu::Message& message)
{
    for (Reader reader(header); reader.IsGood() && !reader.Rest().isEmpty();) {
        const int element = reader.Octet();
        const QByteArray octets = reader.Octets(reader.Octet());
        const bool isWord = element == ConcatenatedWord && octets.size() == 4;
        if (!reader.IsGood() || !(isWord || (element == ConcatenatedByte && octets.size() == 3)))
            continue;
        const auto octet = [&](int fromEnd) { return static_cast<uchar>(octets.at(octets.size() - fromEnd)); };
        if (octet(1) == 0 || octet(1) > octet(2))
            continue;
        message.reference = isWord ? octet(4) << 8 | octet(3) : octet(3);
        message.parts = octet(2);
        message.part = octet(1);
    }
}

std::optional<Pdu::Message> Decode(const QByteArray& unit, int type)
{
    Pdu::Message message;
    Reader reader(unit);
    reader.Octets(reader.Octet()); // the service centre
    const int first = reader.Octet();
    if ((first & TypeMask) != type)
        return std::nullopt;
    if (type == TypeSubmit)
        reader.Octet(); // message reference
    message.number = ReadAddress(reader);
    reader.Octet(); // protocol identifier
    const std::optional<Coding> coding = DecodeScheme(reader.Octet());
    if (type == TypeDeliver) {
        message.time = DecodeTime(reader.Octets(7));
    } else {
        static constexpr int validitySizes[] = {0, 7, 1, 7}; // 3GPP TS 23.040, 9.2.3.3
        reader.Octets(validitySizes[first >> 3 & 0x03]);
    }

    const int length = reader.Octet();
    const int octets = coding == Coding::SevenBit ? (length * 7 + 7) / 8 : length;
    const QByteArray data = reader.Octets(octets);
    if (!reader.IsGood() || !coding || data.size() > MaxData)
        return std::nullopt;

    int headerSize = 0;
    if (first & HasHeader) {
        headerSize = data.isEmpty() ? 1 : static_cast<uchar>(data.at(0)) + 1;
        if (headerSize > data.size())
            return std::nullopt;
        ReadHeader(data.mid(1, headerSize - 1), message);
    }
    const QByteArray body = data.mid(headerSize);
    if (*coding == Coding::SevenBit) {
        const int headerSeptets = (headerSize * 8 + 6) / 7;
        message.text = FromSeptets(Unpack(body, length - headerSeptets, headerSeptets * 7 - headerSize * 8));
    } else if (*coding == Coding::EightBit) {
        message.text = QString::fromLatin1(body);
    } else {
        for (int i = 0; i + 1 < body.size(); i += 2)
            message.text +=
                QChar(static_cast<char16_t>(static_cast<uchar>(body.at(i)) << 8 | static_cast<uchar>(body.at(i + 1))));
    }
    return message;
}

}

QList<QByteArray> Pdu::EncodeDeliver(const QString& sender, const QString& text, const QDateTime& time, int reference)
{
    return Encode(QByteArray(1, NoMoreMessages | TypeDeliver) + EncodeAddress(sender), EncodeTime(time), text,
                  reference);
}

QList<QByteArray> Pdu::EncodeSubmit(const QString& recipient, const QString& text, int reference)
{
    return Encode(QByteArray(1, TypeSubmit) + static_cast<char>(reference) + EncodeAddress(recipient), {}, text,
                  reference);
}

std::optional<Pdu::Message> Pdu::DecodeDeliver(const QByteArray& unit)
{
    return Decode(unit, TypeDeliver);
}

std::optional<Pdu::Message> Pdu::DecodeSubmit(const QByteArray& unit)
{
    return Decode(unit, TypeSubmit);
}

int Pdu::Length(const QByteArray& unit)
{
    return unit.isEmpty() ? -1 : static_cast<int>(unit.size()) - 1 - static_cast<uchar>(unit.at(0));
}

#include "SmsParts.h"

#include <vector>

namespace
{

// 3GPP TS 23.038, 6.2.1 and 6.2.1.1: the default alphabet, and its extension, whose characters take two septets.
constexpr char DefaultAlphabet[] = "@£$¥èéùìòÇ\nØø\rÅåΔ_ΦΓΛΩΠΨΣΘΞÆæßÉ !\"#¤%&'()*+,-./0123456789:;<=>?"
                                   "¡ABCDEFGHIJKLMNOPQRSTUVWXYZÄÖÑÜ§¿abcdefghijklmnopqrstuvwxyzäöñüà";
constexpr char ExtendedAlphabet[] = "\f^{}\\[~]|€";

/// Room for the text of a message alone and of one of several, whose header takes six octets.
constexpr int SeptetsAlone = 160;
constexpr int SeptetsOfSeveral = 153;
constexpr int UnitsAlone = 70;
constexpr int UnitsOfSeveral = 67;

/// @param sizes of the characters, none of which may be divided.
int Count(const std::vector<int>& sizes, int alone, int ofSeveral)
{
    int parts = 1;
    int used = 0;
    int total = 0;
    for (const int size : sizes) {
        total += size;
        if (used + size > ofSeveral) {
            ++parts;
            used = 0;
        }
        used += size;
    }
    return total <= alone ? 1 : parts;
}

}

SmsParts CountSmsParts(const QString& text)
{
    const QString plain = QString::fromUtf8(DefaultAlphabet);
    const QString extended = QString::fromUtf8(ExtendedAlphabet);
    std::vector<int> septets;
    std::vector<int> units;
    bool isGsm = true;
    for (const QChar character : text) {
        isGsm = isGsm && (plain.contains(character) || extended.contains(character));
        septets.push_back(extended.contains(character) ? 2 : 1);
        if (character.isLowSurrogate() && !units.empty())
            units.back() = 2;
        else
            units.push_back(1);
    }
    return isGsm ? SmsParts{Count(septets, SeptetsAlone, SeptetsOfSeveral), "GSM 7-bit"}
                 : SmsParts{Count(units, UnitsAlone, UnitsOfSeveral), "UCS-2"};
}

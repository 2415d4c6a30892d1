#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <functional>
#include <optional>

namespace dorvane {

// The new key a map gives an old key, 0 when it has none.
using KeyLookup = std::function<qint32(qint32)>;

// The column of a step's argument text.
inline constexpr char kStepArgumentsColumn[] = "sStepArguments";

// The keys inside a step's argument text (sStepArguments), read from its
// UTF-8 bytes: every character the rules look for is ASCII, which UTF-8
// never uses inside another character, so a text is rewritten where the
// database holds it, without a conversion.
//   a process call   "ProcessKey=" followed by a process key (the first
//                    occurrence counts);
//   variable tokens  "=@", any text, then "[" version key "|" variable key "]";
//                    several may stand in one text.

// Reads a number as the suite's argument readers do: leading blanks are
// skipped, then an optional sign and digits up to the first character that
// cannot continue the number; an empty or non-numeric stretch reads as 0.
// A number beyond 32 bits throws DbError ("Overflow").
qint32 ReadArgumentNumber(QByteArrayView text);

// A number as the argument texts store it: a leading blank for a number
// that is not negative (" 42"), the minus sign otherwise ("-7").
QByteArray FormatArgumentNumber(qint32 number);

// The rewritten argument text of a step of the destination version, or
// nullopt when the text stays as it is.
//  - A text with "ProcessKey=" becomes exactly "ProcessKey=" and the key,
//    mapped through processMap when found there; whatever stood around the
//    pair is dropped, and the text is rewritten even when the key was not
//    copied.
//  - Otherwise every complete variable token gets the destination version
//    key and its variable key mapped through variableMap when found there;
//    an incomplete token ends the scan and is left as it stands.
std::optional<QByteArray> FixUpStepArguments(QByteArrayView text, qint32 destinationVersionKey, const KeyLookup& processMap,
                                             const KeyLookup& variableMap);

} // namespace dorvane

#pragma once

#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

namespace dorvane {

class Connection;
class MessageSink;

// The list-handling attributes of a host version: how the suite pages
// through a list on a host screen.
struct ListAttributes {
    QString NextPageLine;      // the screen line that shows the indicator
    QString NextPageIndicator; // the text that says more rows follow
    QString NextPageKey;       // the key that shows the next page
};

// The key names offered for the next-page key, in the order they are shown
// (70 host terminal keys).
const QStringList& NextPageKeyNames();

// sVersionAttributes is a sequence of tagged values, each ended by a tab:
//   "MoreLine=" TAB line TAB "MoreKey=" key TAB "MoreText=" text TAB
// The tab after "MoreLine=" belongs to the format: the reader starts the
// line one character after the tag, so a string written without that tab
// loses the first character of its line. A missing tag, or a value without
// its closing tab, reads as empty.
ListAttributes ParseVersionAttributes(const QString& attributes);
QString BuildVersionAttributes(const ListAttributes& values);

// The checks of the dialog's OK, in order: indicator, line, key. A failure
// is shown through `messages`; the result names the field to focus
// ("txtNextPageIndicator", "txtNextPageLine", "cbNextPageKey"), empty when
// every check passed.
QString CheckListAttributes(const ListAttributes& values, MessageSink& messages);

// Shows the attributes dialog on `shown`; empty when the user cancelled.
using AttributesDialog = std::function<std::optional<ListAttributes>(const ListAttributes& shown)>;

// cmdAttributes: reads the version's attribute string, lets the dialog
// change the three values and writes the string back to the row at once.
// Returns true when the row was written; false when the dialog was
// cancelled or on a database error, which is shown after
// "Error while setting attributes:".
bool SetVersionAttributes(Connection& connection, MessageSink& messages, qint32 versionKey,
                          const AttributesDialog& dialog);

} // namespace dorvane

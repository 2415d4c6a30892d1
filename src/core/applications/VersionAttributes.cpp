#include "core/applications/VersionAttributes.h"

#include "core/repository/Connection.h"
#include "core/repository/Interaction.h"
#include "core/repository/Recordset.h"

namespace dorvane {

namespace {

constexpr QChar kTab = u'\t';
const QString kMoreLine = QStringLiteral("MoreLine=");
const QString kMoreKey = QStringLiteral("MoreKey=");
const QString kMoreText = QStringLiteral("MoreText=");

// The value that starts `skip` characters after the first occurrence of
// `tag` and ends before the next tab.
QString TaggedValue(const QString& attributes, const QString& tag, qsizetype skip)
{
    const qsizetype at = attributes.indexOf(tag);
    if (at < 0)
        return QString();
    const qsizetype start = at + skip;
    if (start > attributes.size())
        return QString();
    const qsizetype end = attributes.indexOf(kTab, start);
    if (end < 0)
        return QString();
    return attributes.mid(start, end - start);
}

QStringList BuildKeyNames()
{
    QStringList names = {
        QStringLiteral("Alt"),           QStringLiteral("Alternate Cursor"), QStringLiteral("Attention"),
        QStringLiteral("Backspace"),     QStringLiteral("Back Tab"),         QStringLiteral("Clear"),
        QStringLiteral("Cmd Function Key"), QStringLiteral("Cursor Down"),   QStringLiteral("Cursor Left"),
        QStringLiteral("Cursor Right"),  QStringLiteral("Cursor Select"),    QStringLiteral("Cursor Up"),
        QStringLiteral("Delete"),        QStringLiteral("Dup"),              QStringLiteral("End"),
        QStringLiteral("Enter"),         QStringLiteral("Erase EOF"),        QStringLiteral("Erase Input"),
        QStringLiteral("Field Exit"),    QStringLiteral("Field Mark"),       QStringLiteral("Field -"),
        QStringLiteral("Field +"),       QStringLiteral("Forward Tab"),      QStringLiteral("Help"),
        QStringLiteral("Hexadecimal"),   QStringLiteral("Home"),             QStringLiteral("Host Print"),
        QStringLiteral("Insert"),        QStringLiteral("Insert Toggle"),    QStringLiteral("New Line"),
        QStringLiteral("Page Up"),       QStringLiteral("Page Down"),        QStringLiteral("Print PC"),
        QStringLiteral("Record Backspace"), QStringLiteral("Reset"),         QStringLiteral("Test"),
    };
    for (int i = 1; i <= 10; ++i)
        names << QStringLiteral("PA%1").arg(i);
    for (int i = 1; i <= 12; ++i)
        names << QStringLiteral("PF%1/F%1").arg(i);
    for (int i = 13; i <= 24; ++i)
        names << QStringLiteral("PF%1").arg(i);
    return names;
}

} // namespace

const QStringList& NextPageKeyNames()
{
    static const QStringList names = BuildKeyNames();
    return names;
}

ListAttributes ParseVersionAttributes(const QString& attributes)
{
    ListAttributes values;
    values.NextPageLine = TaggedValue(attributes, kMoreLine, kMoreLine.size() + 1);
    values.NextPageIndicator = TaggedValue(attributes, kMoreText, kMoreText.size());
    values.NextPageKey = TaggedValue(attributes, kMoreKey, kMoreKey.size());
    return values;
}

QString BuildVersionAttributes(const ListAttributes& values)
{
    return kMoreLine + kTab + values.NextPageLine + kTab + kMoreKey + values.NextPageKey + kTab + kMoreText +
           values.NextPageIndicator + kTab;
}

QString CheckListAttributes(const ListAttributes& values, MessageSink& messages)
{
    if (values.NextPageIndicator.isEmpty()) {
        messages.Inform(QStringLiteral("Next Page Indicator cannot be blank"));
        return QStringLiteral("txtNextPageIndicator");
    }
    if (values.NextPageLine.isEmpty()) {
        messages.Inform(QStringLiteral("Next Page Line cannot be blank"));
        return QStringLiteral("txtNextPageLine");
    }
    if (values.NextPageKey.isEmpty()) {
        messages.Inform(QStringLiteral("You must select a Next Page key"));
        return QStringLiteral("cbNextPageKey");
    }
    return QString();
}

bool SetVersionAttributes(Connection& connection, MessageSink& messages, qint32 versionKey,
                          const AttributesDialog& dialog)
{
    try {
        Recordset version(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey=") + QString::number(versionKey),
                          connection);
        const QString stored = version.Text(QStringLiteral("sVersionAttributes"));
        const std::optional<ListAttributes> chosen = dialog(ParseVersionAttributes(stored));
        if (!chosen)
            return false;
        version.SetValue(QStringLiteral("sVersionAttributes"), BuildVersionAttributes(*chosen));
        version.Update();
        return true;
    } catch (const DbError& e) {
        messages.Inform(QStringLiteral("Error while setting attributes:") + e.description());
        return false;
    }
}

} // namespace dorvane

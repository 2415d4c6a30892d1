#include "support/RepositoryTest.h"

namespace dorvane::test {

qint32 addTo(Recordset& rs, const Values& values)
{
    rs.AddNew();
    for (const auto& [field, value] : values)
        rs.SetValue(field, value);
    rs.Update();
    return rs.Int(rs.KeyField());
}

qint32 addRow(Connection& conn, const QString& tableOrSelect, const Values& values)
{
    const bool select = tableOrSelect.startsWith(u"SELECT "_s, Qt::CaseInsensitive);
    Recordset rs(select ? tableOrSelect : u"SELECT * FROM %1 WHERE 1=0"_s.arg(tableOrSelect), conn);
    return addTo(rs, values);
}

void RepositoryTest::SetUp()
{
    db = std::make_unique<TestDatabase>(GetParam());
    if (const std::optional<RepositoryContent> c = content())
        DB_ASSERT(db->build(*c));
    DB_ASSERT(conn.Open(db->connectionString()));
}

qint32 RepositoryTest::addApp(const QString& name, const QString& id, qint32 platform, qint32 emulator)
{
    Values values = {{u"sAppName"_s, name}, {u"iAppPlatform"_s, platform}, {u"iApp3270Key"_s, emulator}};
    if (!id.isEmpty())
        values.emplace_back(u"sAppID"_s, id);
    return add(u"tApp"_s, values);
}

qint32 RepositoryTest::addWindow(qint32 version, const QString& name)
{
    return add(u"tWindow"_s, {{u"iWindowVerKey"_s, version}, {u"sWindowPhysicalName"_s, name}, {u"sWindowLogicalName"_s, name}});
}

Built RepositoryTest::build(qint32 app, const std::vector<VersionSpec>& versions)
{
    Built built{{{u"app"_s, app}}};
    QHash<QString, qint32>& key = built.keys;
    for (const VersionSpec& v : versions) {
        const qint32 version = built.version = key[v.id] = add(u"tVersion"_s, {{u"iVersionAppKey"_s, app}, {u"sVersionID"_s, v.id}, {u"iMapType"_s, 1}});
        QHash<QString, qint32> firstObject;
        for (const Named& w : v.windows) {
            const qint32 window = key[w.name] = addWindow(version, w.name);
            for (const QString& object : w.names)
                key[object] = add(u"tObject"_s, {{u"iObjectWindowKey"_s, window}, {u"sObjectPhysicalName"_s, object}});
            firstObject[w.name] = w.names.isEmpty() ? 0 : key[w.names.first()];
        }
        for (const Named& p : v.processes) {
            const qint32 process = key[p.name]
                = add(u"tProcess"_s, {{u"iProcessVerKey"_s, version}, {u"sProcessName"_s, p.name}, {u"iProcessType"_s, 1}});
            int sequence = 0;
            for (const QString& window : p.names) {
                const QString at = p.name + u'/' + window;
                const qint32 stepWindow = key[at] = add(u"tStepWindow"_s, {{u"iStepWindowProcessKey"_s, process},
                    {u"iStepWindowVerKey"_s, version}, {u"iStepWindowWindowKey"_s, key.value(window)}, {u"iStepWindowSequenceNum"_s, ++sequence}});
                key[at + u"/1"_s] = add(u"tStep"_s, {{u"iStepWindowKey"_s, stepWindow}, {u"iStepSequenceNum"_s, 1},
                                                      {u"iStepObjectKey"_s, firstObject.value(window)}});
            }
        }
    }
    return built;
}

} // namespace dorvane::test

#include "applications/SystemScreen.h"

#include "applications/AppTestFixture.h"

using namespace dorvane;
using namespace dorvane::test;

class SystemScreenTest : public AppRepositoryTest {
protected:
    qint32 addVersion(qint32 appKey)
    {
        Recordset rs(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey=0"), conn);
        rs.AddNew();
        rs.SetValue(QStringLiteral("iVersionAppKey"), appKey);
        rs.SetValue(QStringLiteral("sVersionID"), QStringLiteral("1.0"));
        rs.Update();
        return rs.Int(QStringLiteral("iVersionKey"));
    }

    qint32 systemClassOf(qint32 platform)
    {
        Recordset rs(
            QStringLiteral("SELECT * FROM tClass WHERE iClassPlatformKey=%1 AND sClassPhysicalName = '[System]'")
                .arg(platform),
            conn);
        return rs.Int(QStringLiteral("iClassKey"));
    }

    qint32 windows(qint32 version)
    {
        return count(
            QStringLiteral("SELECT * FROM tWindow WHERE sWindowPhysicalName = '[System Screen]' AND iWindowVerKey=")
            + QString::number(version));
    }

    qint32 objects(qint32 version)
    {
        return count(
            QStringLiteral("SELECT * FROM tObject WHERE sObjectPhysicalName = '[System]' AND iObjectVersionKey=")
            + QString::number(version));
    }

    // A version of a new application on the platform, seeded twice as two
    // saves of it would.
    qint32 seedTwice(qint32 platform, bool host)
    {
        const qint32 version = addVersion(addApp(QStringLiteral("App"), QStringLiteral("APP"), platform));
        CreateSystemScreen(conn, version, host, platform);
        CreateSystemScreen(conn, version, host, platform);
        return version;
    }
};

TEST_P(SystemScreenTest, HostVersionIsSeededOnce)
{
    qint32 version = 0;
    DB_ASSERT(version = seedTwice(kPlatform3270, true));
    EXPECT_EQ(windows(version), 1);
    EXPECT_EQ(objects(version), 1);

    Recordset window(QStringLiteral("SELECT * FROM tWindow WHERE iWindowVerKey=") + QString::number(version), conn);
    EXPECT_EQ(window.Int(QStringLiteral("iWindowClassKey")), 1);
    EXPECT_EQ(window.Text(QStringLiteral("sWindowNameLocation")), QStringLiteral("Row=\tCol=\tLen=\t"));
    EXPECT_EQ(window.Text(QStringLiteral("sWindowLogicalName")), QStringLiteral("[System Screen]"));
    EXPECT_EQ(window.Text(QStringLiteral("sWindowOverrideName")), QStringLiteral("[System Screen]"));
    EXPECT_EQ(window.Int(QStringLiteral("bWindowVisible")), -1);
    EXPECT_EQ(window.Int(QStringLiteral("bWindowUserCreated")), -1);

    Recordset object(QStringLiteral("SELECT * FROM tObject WHERE iObjectVersionKey=") + QString::number(version), conn);
    EXPECT_EQ(object.Int(QStringLiteral("iObjectWindowKey")), window.Int(QStringLiteral("iWindowKey")));
    EXPECT_EQ(object.Int(QStringLiteral("iObjectClassKey")), systemClassOf(kPlatform3270));
    EXPECT_EQ(object.Text(QStringLiteral("sObjectLogicalName")), QStringLiteral("[System]"));
    EXPECT_EQ(object.Int(QStringLiteral("iObjectDataTypeKey")), 1);
    EXPECT_FALSE(object.IsNull(QStringLiteral("sObjectAttributes")));
    EXPECT_EQ(object.Text(QStringLiteral("sObjectAttributes")), QString());
    EXPECT_EQ(object.Int(QStringLiteral("bObjectVisible")), -1);
}

TEST_P(SystemScreenTest, PlatformTwoIsFoundByClass100TheSecondTime)
{
    qint32 version = 0;
    DB_ASSERT(version = seedTwice(kPlatformWeb, false));
    EXPECT_EQ(windows(version), 1);
    EXPECT_EQ(objects(version), 1);
    Recordset window(QStringLiteral("SELECT * FROM tWindow WHERE iWindowVerKey=") + QString::number(version), conn);
    EXPECT_EQ(window.Int(QStringLiteral("iWindowClassKey")), 100);
    EXPECT_FALSE(window.IsNull(QStringLiteral("sWindowNameLocation")));
    EXPECT_EQ(window.Text(QStringLiteral("sWindowNameLocation")), QString());
}

// Class 242 is written but class 100 is looked for: every save adds a pair.
TEST_P(SystemScreenTest, PlatformFourRepeatsThePair)
{
    qint32 version = 0;
    DB_ASSERT(version = seedTwice(kPlatformJava, false));
    EXPECT_EQ(windows(version), 2);
    EXPECT_EQ(objects(version), 2);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tWindow WHERE iWindowClassKey = 242 AND iWindowVerKey=")
                  + QString::number(version)),
        2);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tObject WHERE iObjectClassKey=")
                  + QString::number(systemClassOf(kPlatformJava))),
        2);
}

// Other platforms get neither class nor name location, and repeat too.
TEST_P(SystemScreenTest, OtherPlatformsRepeatWithoutClass)
{
    qint32 version = 0;
    DB_ASSERT(version = seedTwice(kPlatformWindows, false));
    EXPECT_EQ(windows(version), 2);
    EXPECT_EQ(objects(version), 2);
    Recordset window(QStringLiteral("SELECT * FROM tWindow WHERE iWindowVerKey=") + QString::number(version), conn);
    for (; !window.Eof(); window.MoveNext()) {
        EXPECT_EQ(window.Int(QStringLiteral("iWindowClassKey")), 0);
        EXPECT_TRUE(window.IsNull(QStringLiteral("sWindowNameLocation")));
    }
}

TEST_P(SystemScreenTest, TheHostFlagWinsOverThePlatformKey)
{
    // A host application on platform key 4 still gets the host window.
    qint32 version = 0;
    DB_ASSERT(version = seedTwice(kPlatformJava, true));
    EXPECT_EQ(windows(version), 1);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tWindow WHERE iWindowClassKey = 1")), 1);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tObject WHERE iObjectClassKey=")
                  + QString::number(systemClassOf(kPlatformJava))),
        1);
}

TEST_P(SystemScreenTest, PlatformWithoutSystemClassFails)
{
    const qint32 version = addVersion(addApp(QStringLiteral("App"), QStringLiteral("APP"), kPlatformWeb));
    DB_ASSERT(
        conn.Execute(QStringLiteral("DELETE FROM tClass WHERE iClassPlatformKey=2 AND sClassPhysicalName='[System]'")));
    try {
        CreateSystemScreen(conn, version, false, kPlatformWeb);
        FAIL() << "no error raised";
    } catch (const DbError& e) {
        EXPECT_EQ(e.description(), QStringLiteral("Platform 2 has no \"[System]\" class."));
    }
    EXPECT_EQ(objects(version), 0);
}

INSTANTIATE_TEST_SUITE_P(Backends, SystemScreenTest, ::testing::ValuesIn(TestBackends()));

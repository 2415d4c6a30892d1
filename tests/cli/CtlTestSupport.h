#pragma once

// Running the built dorvanectl from a test. DORVANECTL_PATH is set by the
// build for each test program that includes this.

#include <gtest/gtest.h>

#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

namespace dorvane::test {

struct CtlResult {
    int exitCode = -1;
    QString out;
    QString err;
};

// Runs dorvanectl with `registry` as its settings file. Its standard input
// is a closed pipe: there is no terminal to answer on.
inline CtlResult Ctl(const QStringList& arguments, const QString& registry = QStringLiteral("/nonexistent/zentrix.reg"))
{
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("ZENTRIX_REGISTRY"), registry);
    process.setProcessEnvironment(env);
    process.start(QStringLiteral(DORVANECTL_PATH), arguments);
    process.closeWriteChannel();
    EXPECT_TRUE(process.waitForFinished(120000)) << "dorvanectl did not finish";
    CtlResult run;
    run.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    run.out = QString::fromLocal8Bit(process.readAllStandardOutput());
    run.err = QString::fromLocal8Bit(process.readAllStandardError());
    return run;
}

// A settings file holding the given value lines (backslashes escaped).
inline void WriteSettings(const QString& path, const QStringList& values)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QString text = QStringLiteral("Windows Registry Editor Version 5.00\r\n\r\n"
                                  "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Bramlund\\Zentrix]\r\n");
    for (QString value : values)
        text += value.replace(u'\\', QStringLiteral("\\\\")) + QStringLiteral("\r\n");
    file.write(text.toUtf8());
}

inline QString Quoted(const QString& name, const QString& value)
{
    return QStringLiteral("\"%1\"=\"%2\"").arg(name, value);
}

} // namespace dorvane::test

// dorvanectl's own commands and command line, run as a program: info,
// help, --version, the create commands, usage errors and settings files.

#include "cli/CtlTestSupport.h"
#include "Version.h"

namespace dorvane::test {
namespace {

// The create commands refuse to overwrite what they made. What info prints
// for the settings (<E> the installation, <S> the shared folder, <D> the
// temporary folder), with its status.
TEST(CliInfo, CreateRefusesToOverwriteAndInfoPrintsThePlanAndWhetherTheRepositoryOpens)
{
    QTemporaryDir dir;
    const QString exe = dir.filePath(u"install"_s), shared = dir.filePath(u"shared"_s), reg = dir.filePath(u"zentrix.reg"_s);
    for (const QStringList& command : {QStringList{u"create-repository"_s, dir.filePath(u"Zentrix.mdb"_s)},
                                       QStringList{u"create-installation"_s, exe}, QStringList{u"create-shared-folder"_s, shared}}) {
        SCOPED_TRACE(command.join(u' ').toStdString());
        ASSERT_EQ(Ctl(command).exitCode, 0);
        const CtlResult again = Ctl(command);
        EXPECT_TRUE(again.exitCode == 1 && (again.err.contains(u"already exists"_s) || again.err.contains(u"testdata.mdb"_s))) << again.err.toStdString();
    }
    struct Case { QString values; int status; QString out; };
    const QString plan = u"shared-resource-path: <S>\ntest-data: <S>\\testdata.mdb\nuser-data: <E>\\UserData.mdb\ninstallation-path: <E>\n"_s;
    const std::vector<Case> cases = {
        {uR"("ActiveDB"="Tutorial"|"ExePath"="<E>"|"IsLocalDatabase"=dword:00000001)"_s, 0,
         u"mode: Tutorial\nconnection: PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=<E>\\Tutorial\\Database\\Tutorial.mdb;\n"
         u"shared-resource-path: <E>\\Tutorial\ntest-data: <E>\\Tutorial\\TestData.mdb\n"
         u"user-data: <E>\\Tutorial\\database\\UserData.mdb\ninstallation-path: <E>\nenvironments: 1\n"_s},
        {uR"("ActiveDB"="Zentrix"|"IsLocalDatabase"=dword:00000001|"LocalDatabasePath"="<D>"|"LocalDatabaseName"="Zentrix.mdb"|"SharedResourcePath"="<S>"|"ExePath"="<E>")"_s, 0,
         u"mode: Local\nconnection: PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=<D>\\Zentrix.mdb;\n"_s + plan + u"environments: 0\n"_s},
        // A data source that does not open, its password masked.
        {uR"("ActiveDSN"="nosuchsource;UID=admin;PWD=s3cret"|"SharedResourcePath"="<S>"|"ExePath"="<E>")"_s, 1,
         u"mode: Server\nconnection: PROVIDER=MSDASQL;DSN=nosuchsource;UID=admin;PWD=********\n"_s + plan},
    };
    const auto fill = [&](QString text) { return text.replace(u"<E>"_s, exe).replace(u"<S>"_s, shared).replace(u"<D>"_s, dir.path()); };
    for (const Case& c : cases) {
        WriteSettings(reg, fill(c.values));
        const CtlResult run = Ctl({u"info"_s}, reg);
        Check({u"info"_s, c.status, c.status ? u"Could not open database: …"_s : QString(), fill(c.out)}, run);
        EXPECT_FALSE(run.err.contains(u"s3cret"_s) || run.err.endsWith(u": \n"_s)) << "a password shown, or no reason given";
    }

    // --registry, in both spellings, wins over the environment.
    WriteSettings(reg, uR"("ActiveDB"="Tutorial"|"ExePath"="%1")"_s.arg(exe));
    for (const QStringList& option : {QStringList{u"--registry"_s, reg}, QStringList{u"--registry="_s + reg}})
        EXPECT_TRUE(Ctl(option + QStringList{u"info"_s}, dir.filePath(u"server.reg"_s)).out.startsWith(u"mode: Tutorial\n"_s));
}

TEST(CliUsage, HelpVersionAndMistakesGiveTheUsageAndStatusTwoAndAnUnusableSettingsFileIsNamed)
{
    const CtlResult run = Ctl({u"--help"_s});
    EXPECT_EQ(Ctl({u"help"_s}).out, run.out);
    EXPECT_TRUE(run.exitCode == 0 && Like(run.out, u"…--registry FILE…--version…\n  info\n…\n  create-repository FILE | --dsn NAME\n…"
                              u"\n  create-installation DIR\n…\n  create-shared-folder DIR\n…"_s) && run.err.isEmpty());
    EXPECT_TRUE(Ctl({u"help"_s, u"create-installation"_s}).out.startsWith(u"usage: dorvanectl create-installation DIR\n  Create the installation files"_s));
    // Every command's help: its usage, then its summary, within 80 columns.
    const QStringList lines = run.out.split(u'\n');
    ASSERT_GT(lines.indexOf(u"Commands:"_s), 0);
    for (qsizetype i = lines.indexOf(u"Commands:"_s) + 1; i < lines.size() && !lines.at(i).isEmpty(); ++i) {
        if (lines.at(i).startsWith(u"  "_s) && lines.at(i).at(2) != u' ') {
            const QString name = lines.at(i).mid(2).section(u' ', 0, 0);
            const CtlResult help = Ctl({u"help"_s, name});
            EXPECT_TRUE(help.exitCode == 0 && help.out.startsWith(u"usage: dorvanectl "_s + name)) << help.out.toStdString();
            EXPECT_EQ(Ctl({name, u"--help"_s}).out, help.out);
            for (const QString& line : (help.out + run.out).split(u'\n'))
                EXPECT_LE(line.size(), 80) << line.toStdString();
        }
    }
    Check({QString(), 0, QString(), u"dorvanectl "_s + QLatin1String(kVersion) + u'\n'}, Ctl({u"--version"_s}));

    // A command line the tool cannot use ends with status 2 before anything
    // is read or written: an empty --registry (an unset shell variable) must
    // not fall back to the machine's settings.
    const std::vector<Want> runs = {
        {QString(), 2, u"…usage: dorvanectl…"_s}, {u"frobnicate"_s, 2, u"…Unknown command: frobnicate…"_s},
        {u"help|frobnicate"_s, 2, u"…Unknown command: frobnicate…"_s}, {u"--verbose|info"_s, 2, u"…Unknown option: --verbose…"_s},
        {u"--registry"_s, 2, u"…--registry needs a file name…"_s}, {u"--registry||delete-environment|X"_s, 2, u"…--registry needs a file name…"_s},
        {u"--registry=|info"_s, 2, u"…--registry needs a file name…"_s}, {u"info|--registry|x.reg"_s, 2, u"…usage: dorvanectl info…"_s},
        {u"info|extra"_s, 2, u"…usage: dorvanectl info…"_s}, {u"create-repository"_s, 2, u"…usage: dorvanectl create-repository…"_s},
        {u"create-repository|--dsn"_s, 2, u"…usage: dorvanectl create-repository…"_s},
        {u"create-installation|a|b"_s, 2, u"…usage: dorvanectl create-installation…"_s},
        {u"delete-environment|"_s, 2, u"…Argument 1 of delete-environment is empty.…"_s},
        {u"copy-version|Env|A - 1|A|"_s, 2, u"…Argument 4 of copy-version is empty.…"_s},
        {u"update-version"_s, 2, u"usage: dorvanectl update-version ENVIRONMENT LISTED APPLICATION VERSION…"_s},
        {u"update-version|a|b|c|d|e"_s, 2, u"usage: dorvanectl update-version…"_s},
        {u"copy-version|a|b|c"_s, 2, u"usage: dorvanectl copy-version ENVIRONMENT LISTED APPLICATION VERSION…"_s},
        {u"delete-version|a"_s, 2, u"usage: dorvanectl delete-version APPLICATION VERSION [--yes]…"_s},
        {u"delete-version|a|--yes"_s, 2, u"usage: dorvanectl delete-version…"_s},
        {u"delete-application"_s, 2, u"usage: dorvanectl delete-application APPLICATION [--yes]…"_s},
        {u"delete-application|--yes"_s, 2, u"usage: dorvanectl delete-application…"_s},
        {u"copy-environment|TUTORIAL"_s, 2, u"usage: dorvanectl copy-environment SOURCE NEWNAME…"_s},
        {u"export-keywords|Web Store"_s, 2, u"usage: dorvanectl export-keywords APPLICATION FILE\n"_s},
        {u"import-keywords|Web Store"_s, 2, u"usage: dorvanectl import-keywords APPLICATION FILE\n"_s},
        {u"restore|TUTORIAL"_s, 2, u"usage: dorvanectl restore ENVIRONMENT FILE [--yes] [--dry-run]\n"_s},
    };
    QTemporaryDir dir;
    const QString settings = dir.filePath(u"zentrix.reg"_s), missing = dir.filePath(u"missing.reg"_s), ini = dir.filePath(u"zentrix.ini"_s);
    WriteSettings(settings, uR"("ActiveDB"="Tutorial"|"ExePath"="%1")"_s.arg(dir.path()));
    CheckRuns(runs, settings);

    // A settings file that is missing or no registry export is reported by
    // name, by info before it prints anything and by the commands that open
    // the repository.
    ASSERT_TRUE(WriteFile(ini, "[Zentrix]\nActiveDB=Tutorial\n"));
    const QString gone = u"Could not open database: The settings file "_s + missing + u" does not exist.\n…"_s;
    CheckRuns({{u"--registry|"_s + missing + u"|info"_s, 1, gone},
               {u"info"_s, 1, u"Could not open database: The settings file "_s + ini + u" is not a registry export…"_s}}, ini);
    CheckRuns({{u"info"_s, 1, gone}, {u"delete-environment|X"_s, 1, gone}}, missing);
}

} // namespace
} // namespace dorvane::test

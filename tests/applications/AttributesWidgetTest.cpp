// The Attributes button of the Versions tab and the frmAttributes dialog.

#include "applications/frmAttributes.h"
#include "mainwindow/MainWindowFixture.h"
#include "mainwindow/ScriptedDialogs.h"
#include "repository/Recordset.h"

#include <QComboBox>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTabWidget>
#include <QTest>

namespace dorvane::test {
namespace {

const QString kStored = QStringLiteral("MoreLine=\t22\tMoreKey=Enter\tMoreText=Next page\t");

class AttributesWidgetTest : public MainWindowFixture {
protected:
    void SetUp() override
    {
        MainWindowFixture::SetUp();
        OpenWindow(RepositoryContent::Tutorial);
        window->SetDialogProvider(&dialogs);
        window->activateWindow();
        c().SSMainTab->setCurrentIndex(frmMainForm::ApplicationsPage);
    }

    void setStored(const QString& app, const QString& versionId, const QVariant& attributes)
    {
        Recordset rs(QStringLiteral("SELECT * FROM tVersion WHERE sVersionID='%1' AND iVersionAppKey IN "
                                    "(SELECT iAppKey FROM tApp WHERE sAppName='%2')")
                         .arg(versionId, app),
                     repository());
        ASSERT_FALSE(rs.Eof());
        rs.SetValue(QStringLiteral("sVersionAttributes"), attributes);
        rs.Update();
    }

    QVariant stored(qint32 versionKey)
    {
        Recordset rs(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey=%1").arg(versionKey), repository());
        return rs.Value(QStringLiteral("sVersionAttributes"));
    }

    void openVersion(const QString& app, const QString& versionId)
    {
        const int appRow = FindItemByText(c().lbAppList, app);
        ASSERT_GE(appRow, 0);
        c().lbAppList->setCurrentRow(appRow);
        c().SSAppTab->setCurrentIndex(1);
        const int row = FindItemByText(c().lbVersionList, versionId);
        ASSERT_GE(row, 0);
        c().lbVersionList->setCurrentRow(row);
        ASSERT_EQ(c().txtVersionID->text(), versionId);
    }

    ScriptedDialogs dialogs;
};

TEST_P(AttributesWidgetTest, AttributesOfAHostVersionAreShownAndWrittenAtOnce)
{
    setStored(QStringLiteral("Customer Inquiry"), QStringLiteral("R5"), kStored);
    openVersion(QStringLiteral("Customer Inquiry"), QStringLiteral("R5"));
    ASSERT_TRUE(c().cmdAttributes->isEnabled());
    dialogs.attributeAnswers.push_back(ListAttributes{QStringLiteral("24"), QStringLiteral("More..."), QStringLiteral("PF8/F8")});

    c().cmdAttributes->click();
    ASSERT_EQ(dialogs.attributesShown.size(), 1u);
    EXPECT_EQ(dialogs.attributesShown[0].NextPageLine, QStringLiteral("22"));
    EXPECT_EQ(dialogs.attributesShown[0].NextPageIndicator, QStringLiteral("Next page"));
    EXPECT_EQ(dialogs.attributesShown[0].NextPageKey, QStringLiteral("Enter"));
    EXPECT_EQ(stored(window->CurrentVersionKey).toString(),
              QStringLiteral("MoreLine=\t24\tMoreKey=PF8/F8\tMoreText=More...\t"));
    EXPECT_TRUE(messages.shown.isEmpty());
    // Nothing for the version editor to save.
    EXPECT_FALSE(window->VersionDirty);
    EXPECT_FALSE(c().cmdVersionSave->isEnabled());
}

TEST_P(AttributesWidgetTest, OnlyAHostApplicationsVersionOffersAttributes)
{
    openVersion(QStringLiteral("Order Entry"), QStringLiteral("1.1"));
    EXPECT_FALSE(c().cmdAttributes->isEnabled());
    openVersion(QStringLiteral("Customer Inquiry"), QStringLiteral("R5"));
    EXPECT_TRUE(c().cmdAttributes->isEnabled());
}

INSTANTIATE_TEST_SUITE_P(Backends, AttributesWidgetTest, ::testing::ValuesIn(TestBackends()));

// ---- the dialog itself ----

class frmAttributesTest : public ::testing::Test {
protected:
    ScriptedMessages messages;
};

TEST_F(frmAttributesTest, OkChecksInOrderAndFocusesTheField)
{
    frmAttributes dialog(ListAttributes{}, messages);
    dialog.show();
    dialog.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&dialog));

    dialog.cmdOK->click();
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("Next Page Indicator cannot be blank")});
    EXPECT_TRUE(dialog.isVisible());
    EXPECT_TRUE(dialog.txtNextPageIndicator->hasFocus());

    QTest::keyClicks(dialog.txtNextPageIndicator, QStringLiteral("More..."));
    dialog.cmdOK->click();
    EXPECT_EQ(messages.shown.last(), QStringLiteral("Next Page Line cannot be blank"));
    EXPECT_TRUE(dialog.txtNextPageLine->hasFocus());

    QTest::keyClicks(dialog.txtNextPageLine, QStringLiteral("24"));
    dialog.cmdOK->click();
    EXPECT_EQ(messages.shown.last(), QStringLiteral("You must select a Next Page key"));
    EXPECT_TRUE(dialog.cbNextPageKey->hasFocus());
    EXPECT_TRUE(dialog.Cancelled());

    dialog.cbNextPageKey->setCurrentIndex(dialog.cbNextPageKey->findText(QStringLiteral("PF8/F8")));
    dialog.cmdOK->click();
    EXPECT_EQ(messages.shown.size(), 3);
    EXPECT_FALSE(dialog.isVisible());
    EXPECT_FALSE(dialog.Cancelled());
    EXPECT_EQ(dialog.Values().NextPageLine, QStringLiteral("24"));
    EXPECT_EQ(dialog.Values().NextPageIndicator, QStringLiteral("More..."));
    EXPECT_EQ(dialog.Values().NextPageKey, QStringLiteral("PF8/F8"));
}

} // namespace
} // namespace dorvane::test

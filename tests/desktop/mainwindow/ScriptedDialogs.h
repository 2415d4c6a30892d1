#pragma once

// Answers the main window's modal dialogs from queues and records what
// they were shown. An empty answer is Cancel.

#include "desktop/mainwindow/DialogProvider.h"

#include <gtest/gtest.h>

#include <QStringList>

#include <deque>
#include <optional>
#include <vector>

namespace dorvane::test {

class ScriptedDialogs : public DialogProvider {
public:
    std::optional<ListAttributes> ListHandlingAttributes(const ListAttributes& shown) override { attributesShown.push_back(shown); return next(attributeAnswers, "frmAttributes", {}); }
    std::optional<QString> FileList(const QString& caption, FileNamePreset preset) override
    {
        fileListCaptions << caption;
        fileListPresets.push_back(preset);
        return next(fileAnswers, "frmFileList", caption);
    }
    // Each answer is typed and OK pressed; one the check refuses leaves the
    // dialog open for the next answer, as the window stays open.
    std::optional<QString> NewVersionID(const QString& prompt, const std::function<bool(const QString& id)>& okCheck) override
    {
        versionIdPrompts << prompt;
        std::optional<QString> answer;
        do
            answer = next(versionIdAnswers, "frmNewVersionID", prompt);
        while (answer && !okCheck(*answer));
        return answer;
    }
    std::optional<QString> RestoreBackup(const QString& folder) override { restoreFolders << folder; return next(restoreAnswers, "frmRestoreSelect", folder); }

    std::deque<std::optional<ListAttributes>> attributeAnswers;
    std::deque<std::optional<QString>> fileAnswers, versionIdAnswers, restoreAnswers;

    std::vector<ListAttributes> attributesShown;
    std::vector<FileNamePreset> fileListPresets;
    QStringList fileListCaptions, versionIdPrompts, restoreFolders;

private:
    template <typename T>
    static std::optional<T> next(std::deque<std::optional<T>>& answers, const char* dialog, const QString& shown)
    {
        EXPECT_FALSE(answers.empty()) << dialog << " was shown with no answer queued: " << shown.toStdString();
        if (answers.empty())
            return std::nullopt;
        const std::optional<T> answer = answers.front();
        answers.pop_front();
        return answer;
    }
};

} // namespace dorvane::test

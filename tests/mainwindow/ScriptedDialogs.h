#pragma once

// Answers the main window's modal dialogs from queues and records what
// they were shown.

#include "mainwindow/DialogProvider.h"

#include <gtest/gtest.h>

#include <QStringList>

#include <deque>
#include <optional>
#include <vector>

namespace dorvane::test {

class ScriptedDialogs : public DialogProvider {
public:
    std::optional<ListAttributes> ListHandlingAttributes(const ListAttributes& shown) override
    {
        attributesShown.push_back(shown);
        if (attributeAnswers.empty()) {
            ADD_FAILURE() << "frmAttributes was shown with no answer queued";
            return std::nullopt;
        }
        const std::optional<ListAttributes> answer = attributeAnswers.front();
        attributeAnswers.pop_front();
        return answer;
    }

    std::optional<QString> FileList(const QString& caption, FileNamePreset preset) override
    {
        fileListCaptions << caption;
        fileListPresets.push_back(preset);
        if (fileAnswers.empty()) {
            ADD_FAILURE() << "frmFileList was shown with no answer queued: " << caption.toStdString();
            return std::nullopt;
        }
        const std::optional<QString> answer = fileAnswers.front();
        fileAnswers.pop_front();
        return answer;
    }

    // Each answer is typed and OK pressed; one the check refuses leaves the
    // dialog open for the next answer, as the window stays open.
    std::optional<QString> NewVersionID(const QString& prompt,
                                        const std::function<bool(const QString& id)>& okCheck) override
    {
        versionIdPrompts << prompt;
        for (;;) {
            if (versionIdAnswers.empty()) {
                ADD_FAILURE() << "frmNewVersionID was shown with no answer queued: " << prompt.toStdString();
                return std::nullopt;
            }
            const std::optional<QString> answer = versionIdAnswers.front();
            versionIdAnswers.pop_front();
            if (!answer || okCheck(*answer))
                return answer;
        }
    }

    std::optional<QString> RestoreBackup(const QString& folder) override
    {
        restoreFolders << folder;
        if (restoreAnswers.empty()) {
            ADD_FAILURE() << "frmRestoreSelect was shown with no answer queued: " << folder.toStdString();
            return std::nullopt;
        }
        const std::optional<QString> answer = restoreAnswers.front();
        restoreAnswers.pop_front();
        return answer;
    }

    // An empty answer is Cancel.
    std::deque<std::optional<ListAttributes>> attributeAnswers;
    std::deque<std::optional<QString>> fileAnswers;
    std::deque<std::optional<QString>> versionIdAnswers;
    std::deque<std::optional<QString>> restoreAnswers;

    std::vector<ListAttributes> attributesShown;
    QStringList fileListCaptions;
    std::vector<FileNamePreset> fileListPresets;
    QStringList versionIdPrompts;
    QStringList restoreFolders;
};

} // namespace dorvane::test

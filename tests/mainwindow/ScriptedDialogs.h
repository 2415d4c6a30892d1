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

    // An empty answer is Cancel.
    std::deque<std::optional<ListAttributes>> attributeAnswers;
    std::deque<std::optional<QString>> fileAnswers;

    std::vector<ListAttributes> attributesShown;
    QStringList fileListCaptions;
    std::vector<FileNamePreset> fileListPresets;
};

} // namespace dorvane::test

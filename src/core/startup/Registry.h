#pragma once

#include <QString>

#include <memory>
#include <optional>

namespace dorvane {

// The suite keeps its per-machine settings in the Windows registry. On Linux
// they live in a file in regedit's export format; this module reads it with
// the registry's own read semantics. Nothing is ever written.

using RegRoot = quint32;
inline constexpr RegRoot HKEY_CLASSES_ROOT = 0x80000000u;
inline constexpr RegRoot HKEY_CURRENT_USER = 0x80000001u;
inline constexpr RegRoot HKEY_LOCAL_MACHINE = 0x80000002u;
inline constexpr RegRoot HKEY_USERS = 0x80000003u;

inline const QString kZentrixKey = QStringLiteral("SOFTWARE\\Bramlund\\Zentrix");

// Registry value types as stored.
enum RegType : quint32 {
    REG_NONE = 0,
    REG_SZ = 1,
    REG_EXPAND_SZ = 2,
    REG_BINARY = 3,
    REG_DWORD = 4,
    REG_MULTI_SZ = 7,
};

// The settings file read by every call: $ZENTRIX_REGISTRY when set, else
// /etc/zentrix/zentrix.reg. An override (dorvanectl --registry) wins over both.
QString SettingsFilePath();
void SetSettingsFileOverride(const QString& path);

// What makes the current settings file unusable, naming it: it does not
// exist, cannot be read, is too large for one, or is not a registry
// export. Nothing when it can be read. The reads below never report this;
// they read empty, as the registry does for a missing key.
std::optional<QString> SettingsFileProblem();

struct RegKeyData;

// An open key; a key that could not be opened is a null handle on which
// every query fails.
class RegKey {
public:
    RegKey() = default;
    bool isNull() const { return m_data == nullptr; }
    const RegKeyData* data() const { return m_data.get(); }

private:
    friend RegKey RegOpenKey(RegRoot, const QString&);
    std::shared_ptr<const RegKeyData> m_data;
};

// Opens a key of the current settings file; a null key when the file or the
// key is missing or unreadable. A key below HKLM\SOFTWARE that is absent is
// looked for below HKLM\SOFTWARE\WOW6432Node, as a 32-bit program on
// 64-bit Windows sees it.
RegKey RegOpenKey(RegRoot root, const QString& path);

// nullopt stands for the registry's "empty" result.
std::optional<QString> GetSettingString(RegRoot root, const QString& path, const QString& name);
std::optional<qint32> GetSettingDword(RegRoot root, const QString& path, const QString& name);
std::optional<QString> QueryValueString(const RegKey& key, const QString& name);
std::optional<qint32> QueryValueDword(const RegKey& key, const QString& name);
QString TrimAtNull(const QString& text);

// The conversions every caller applies: empty text becomes "", empty number 0.
QString SettingString(const QString& name);
qint32 SettingDword(const QString& name);

} // namespace dorvane

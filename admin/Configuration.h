#pragma once

#include <QString>
#include <optional>

class SharedDatabase;
struct AppSettings;

// The branch settings edited by the configuration screen: bank name, branch
// name, Comm Port and terminal font size, kept in the settings row.
namespace Configuration {

// The Comm Port list holds "1" to "10".
constexpr int portCount = 10;

struct Stored
{
    bool found = false;
    QString bankName;
    QString branchName;
    QString fontSize; // "0" Small, "1" Big
    QString commPort;
};

// What the screen shows when it saves.
struct Entry
{
    QString bankName;
    QString branchName;
    QString commPort;      // the port list's text
    QString fontSizeText;  // the font list's text: "Small", "Big" or empty
    int fontSizeIndex = 0; // the font list's index, -1 when nothing is chosen
};

struct Saved
{
    bool created = false;
    // Only when the row was created: the value the window's own font size
    // takes (the list index, as version 2.1 set it).
    std::optional<double> windowFontSize;
};

// Reads the settings row. When it is there, AppSettings takes its bank name,
// branch name and Comm Port (not its font size). The shared result set is
// left open. Throws StoreError.
Stored load(SharedDatabase& db, AppSettings& settings);

// The message for a name longer than the download header's field, or an
// empty text when the entry can be saved.
QString entryProblem(const Entry& entry);

// Writes the entry: a new row takes the font list's index as FontSize, an
// existing row takes "1" for Big, "0" for Small and otherwise keeps its value.
// AppSettings takes the written names and port, and on an existing row the
// font size too. Throws StoreError.
Saved save(SharedDatabase& db, AppSettings& settings, const Entry& entry);

// The list index (0 for "1") of a stored Comm Port, or nothing when it is not
// a port from 1 to 10.
std::optional<int> portIndex(const QString& commPort);
// The list index a stored FontSize selects, or nothing to leave the list.
std::optional<int> fontSizeIndex(const QString& fontSize);

// The line shown beside the port list: which device the port number means.
QString deviceText(const QString& commPort, const QString& dataDir, const QString& portOverride);
// Why that port cannot be opened whatever is plugged in (a ports.ini line
// that cannot be read, with its file and line); empty when nothing is wrong.
QString deviceProblem(const QString& commPort, const QString& dataDir, const QString& portOverride);

// The message shown when a stored Comm Port cannot be selected.
QString badPortMessage(const QString& commPort);

} // namespace Configuration

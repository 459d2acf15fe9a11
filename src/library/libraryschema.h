#pragma once

#include <QString>

class SqliteDb;

// The library database's layout and how every earlier layout is brought up to date.
//
// The version lives in "PRAGMA user_version"; each migration step takes the file from
// version n - 1 to n and is never edited once released, so a library written by any
// earlier Orvida can be opened. A file whose version is above kCurrentVersion was
// written by a newer Orvida and is not touched.
namespace LibrarySchema {

inline constexpr int kCurrentVersion = 3;

// "PRAGMA application_id" of our files ("OrvL"), so that someone else's SQLite file at our
// path is recognised as such instead of being extended with our tables.
inline constexpr int kApplicationId = 0x4f72764c;

// Runs the steps from `fromVersion` to `toVersion` (both within 0..kCurrentVersion) in one
// transaction and sets user_version; on failure everything is rolled back, the file
// keeps its old version and `error` says which step failed and why.
[[nodiscard]] bool migrate(SqliteDb &db, int fromVersion, int toVersion, QString *error);

// The same steps inside a transaction the caller holds (and commits or rolls back): for
// a caller that must read the version under the same write lock it migrates under.
[[nodiscard]] bool applySteps(SqliteDb &db, int fromVersion, int toVersion, QString *error);

} // namespace LibrarySchema

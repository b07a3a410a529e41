#include "ostrel/platform/registry/schema.h"

#include <cstddef>
#include <iterator>

namespace ostrel_platform {
namespace {

constexpr std::string_view kTexts[] = {
    "BEGIN",
    "BEGIN IMMEDIATE",
    "COMMIT",
    "ROLLBACK",
    "SELECT value FROM meta WHERE name = ?",
    R"(INSERT INTO meta (name, value) VALUES (?, ?)
     ON CONFLICT (name) DO UPDATE SET value = excluded.value)",
    R"(SELECT id, boot IS NOT NULL FROM keys
     WHERE parent = ? AND upper = ? AND (boot IS NULL OR boot = ?))",
    "SELECT 1 FROM keys WHERE id = ?",
    "SELECT class, written, boot IS NOT NULL, name, parent FROM keys WHERE id = ?",
    "INSERT INTO keys (parent, name, upper, class, written, boot) VALUES (?, ?, ?, ?, ?, ?)",
    "INSERT INTO keys (id, parent, name, upper, class, written) VALUES (?, ?, ?, ?, x'', ?)",
    "UPDATE keys SET written = ? WHERE id = ?",
    "DELETE FROM keys WHERE id = ?",
    "SELECT 1 FROM keys WHERE parent = ? AND (boot IS NULL OR boot = ?) LIMIT 1",
    R"(SELECT name, class, written, upper FROM keys
     WHERE parent = ? AND (boot IS NULL OR boot = ?) ORDER BY upper LIMIT 1 OFFSET ?)",
    R"(SELECT name, class, written, upper FROM keys
     WHERE parent = ? AND upper > ? AND (boot IS NULL OR boot = ?) ORDER BY upper LIMIT 1)",
    R"(SELECT id, name, class, boot IS NOT NULL FROM keys
     WHERE parent = ? AND (boot IS NULL OR boot = ?) ORDER BY upper)",
    R"(SELECT count(*), max(length(name)), max(length(class)) FROM keys
     WHERE parent = ? AND (boot IS NULL OR boot = ?))",
    "SELECT id, parent FROM keys WHERE boot <> ?",
    "SELECT type, data FROM vals WHERE key = ? AND upper = ?",
    "SELECT id FROM vals WHERE key = ? AND upper = ?",
    "INSERT INTO vals (key, upper, name, type, data) VALUES (?, ?, ?, ?, ?)",
    "UPDATE vals SET type = ?, data = ? WHERE id = ?",
    "DELETE FROM vals WHERE id = ?",
    "DELETE FROM vals WHERE key = ?",
    "SELECT name, type, data, id FROM vals WHERE key = ? ORDER BY id LIMIT 1 OFFSET ?",
    "SELECT name, type, data, id FROM vals WHERE key = ? AND id > ? ORDER BY id LIMIT 1",
    "SELECT name, type, data, id FROM vals WHERE key = ? ORDER BY id",
    "SELECT count(*), max(length(name)), max(length(data)) FROM vals WHERE key = ?",
};
static_assert(std::size(kTexts) == static_cast<std::size_t>(Sql::kCount));

}  // namespace

const char *const kUpgrades[kFormat] = {R"(
CREATE TABLE meta (name TEXT PRIMARY KEY, value BLOB NOT NULL) STRICT, WITHOUT ROWID;
CREATE TABLE keys (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    parent INTEGER NOT NULL,
    name BLOB NOT NULL,
    upper BLOB NOT NULL,
    class BLOB NOT NULL,
    written INTEGER NOT NULL,
    boot BLOB
) STRICT;
CREATE UNIQUE INDEX keys_by_name ON keys (parent, upper);
CREATE INDEX volatile_keys ON keys (boot) WHERE boot IS NOT NULL;
CREATE TABLE vals (
    id INTEGER PRIMARY KEY,
    key INTEGER NOT NULL,
    upper BLOB NOT NULL,
    name BLOB NOT NULL,
    type INTEGER NOT NULL,
    data BLOB NOT NULL
) STRICT;
CREATE UNIQUE INDEX vals_by_name ON vals (key, upper);
CREATE INDEX vals_by_order ON vals (key);
)"};

std::string_view text_of(Sql sql) {
    return kTexts[static_cast<std::size_t>(sql)];
}

}  // namespace ostrel_platform

// The database that stands beside the library as a peer: one table, filled once, then read through
// a transaction that stays open.

#pragma once

#include <lmdb.h>
#include <stdexcept>
#include <string>
#include <string_view>

namespace bench {

inline void checkDatabase(int result) {
    if (result != MDB_SUCCESS)
        throw std::runtime_error(std::string("database: ") + mdb_strerror(result));
}

class DatabaseWriter {
  public:
    // `flags` are those of the table, MDB_INTEGERKEY for one.
    explicit DatabaseWriter(const char* path, unsigned flags = 0) {
        checkDatabase(mdb_env_create(&m_environment));
        checkDatabase(mdb_env_set_mapsize(m_environment, std::size_t{1} << 30));
        checkDatabase(mdb_env_open(m_environment, path, MDB_NOSUBDIR, 0644));
        checkDatabase(mdb_txn_begin(m_environment, nullptr, 0, &m_transaction));
        checkDatabase(mdb_dbi_open(m_transaction, nullptr, flags, &m_table));
    }
    DatabaseWriter(const DatabaseWriter&) = delete;
    DatabaseWriter& operator=(const DatabaseWriter&) = delete;
    ~DatabaseWriter() { mdb_env_close(m_environment); }

    // Keys come in ascending order, so the pages are filled whole.
    template <class Key>
    void add(Key key, std::string_view bytes) {
        MDB_val name = {sizeof key, &key};
        MDB_val value = {bytes.size(), const_cast<char*>(bytes.data())};
        checkDatabase(mdb_put(m_transaction, m_table, &name, &value, MDB_APPEND));
    }

    void commit() { checkDatabase(mdb_txn_commit(m_transaction)); }

  private:
    MDB_env* m_environment = nullptr;
    MDB_txn* m_transaction = nullptr;
    MDB_dbi m_table = 0;
};

class Database {
  public:
    explicit Database(const char* path, unsigned flags = 0) {
        checkDatabase(mdb_env_create(&m_environment));
        checkDatabase(mdb_env_open(m_environment, path, MDB_NOSUBDIR | MDB_RDONLY, 0644));
        checkDatabase(mdb_txn_begin(m_environment, nullptr, MDB_RDONLY, &m_transaction));
        checkDatabase(mdb_dbi_open(m_transaction, nullptr, flags, &m_table));
        checkDatabase(mdb_cursor_open(m_transaction, m_table, &m_cursor));
    }
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;
    ~Database() {
        mdb_cursor_close(m_cursor);
        mdb_txn_abort(m_transaction);
        mdb_env_close(m_environment);
    }

    // The bytes under the key, in the map; empty without such a key.
    template <class Key>
    std::string_view get(Key key) {
        MDB_val name = {sizeof key, &key}, value = {};
        if (mdb_get(m_transaction, m_table, &name, &value) != MDB_SUCCESS)
            return {};
        return {static_cast<const char*>(value.mv_data), value.mv_size};
    }

    // Calls use(bytes) for all values in the order of the keys, while it gives true.
    template <class Use>
    void walk(Use use) {
        MDB_val key = {}, value = {};
        int result = mdb_cursor_get(m_cursor, &key, &value, MDB_FIRST);
        for (; result == MDB_SUCCESS; result = mdb_cursor_get(m_cursor, &key, &value, MDB_NEXT))
            if (!use(static_cast<const char*>(value.mv_data)))
                break;
    }

  private:
    MDB_env* m_environment = nullptr;
    MDB_txn* m_transaction = nullptr;
    MDB_dbi m_table = 0;
    MDB_cursor* m_cursor = nullptr;
};

} // namespace bench

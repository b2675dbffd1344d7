// The directory's database: SQLite behind handles that close themselves. Private to the directory service.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace dr {

// A prepared statement. Texts bound to it must stay good until the next reset().
class Statement {
public:
    Statement() = default;
    Statement(sqlite3* database, const std::string& sql);
    explicit operator bool() const { return statement_ != nullptr; }

    Statement& bind(int parameter, std::string_view text);
    Statement& bind(int parameter, std::int64_t number);
    Statement& bind_null(int parameter);
    bool step();  // true: a row is there; raises what went wrong
    void run() {  // for statements without rows
        step();
        reset();
    }
    void reset();
    std::int64_t number(int column) const;
    std::string_view text(int column) const;  // good until the next step() or reset()
    bool null(int column) const;

private:
    struct Finalize {
        void operator()(sqlite3_stmt* statement) const;
    };
    std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

class Database {
public:
    // Opens the home's database; without `create` an absent one gives nothing.
    static std::optional<Database> open(bool create);

    void execute(const std::string& sql);
    Statement prepare(const std::string& sql) { return Statement(handle_.get(), sql); }
    // The directory's name as its table has it; nothing when there is none.
    std::optional<std::string> table(std::string_view directory);

private:
    struct Close {
        void operator()(sqlite3* database) const;
    };
    std::unique_ptr<sqlite3, Close> handle_;
};

// A transaction: rolled back unless committed.
class Transaction {
public:
    explicit Transaction(Database& database) : database_(database) { database_.execute("BEGIN IMMEDIATE"); }
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    void commit();

private:
    Database& database_;
    bool open_ = true;
};

std::string quoted(std::string_view identifier);  // as SQL wants a name

}  // namespace dr

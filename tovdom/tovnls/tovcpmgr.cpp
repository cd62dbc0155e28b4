// The code page table. Readers scan it without a lock while another thread appends.
#include <tovdom/tovnls/tovcpmgr.h>

#include <services/lng1.h>
#include <tovdom/tovnls/tovnls.h>
#include <tovutil/tovmodule.h>
#include <tovutil/tovtrcfn.h>
#include <tovutil/tovutil.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <utility>

TOV_TRACE_FILE("tovdom/tovnls/tovcpmgr");

constinit TovPoolCtrl TovCpMgr::ms_pool = {};
constinit pthread_once_t TovCpMgr::ms_lock = PTHREAD_ONCE_INIT;

namespace {

// A chain of rows. A row is complete before it is linked, and a linked row stays as it is, so that a reader
// sees either the old end or a new one behind a complete row.
class CodePageTable {
public:
    struct Row {
        TovCodePage page;
        std::atomic<Row *> next{nullptr};
    };

    CodePageTable() = default;
    CodePageTable(const CodePageTable &) = delete;
    CodePageTable &operator=(const CodePageTable &) = delete;
    ~CodePageTable() {
        for (Row *row = first(); row;)
            delete std::exchange(row, next(*row));
    }

    Row *first() const { return next(m_head); }
    static Row *next(const Row &row) { return row.next.load(std::memory_order_acquire); }

    // The first row with that name behind `last`, which then is the row where the scan ended; null if there
    // is none.
    static const Row *find(const Row *&last, const TovUString &name) {
        for (const Row *row = next(*last); row; row = next(*row)) {
            last = row;
            if (row->page.name == name)
                return row;
        }
        return nullptr;
    }
    const Row *beforeFirst() const { return &m_head; }

    const Row *append(std::int32_t id, TovUString name) {
        Row *row = new Row{{id, std::move(name)}};
        m_last->next.store(row, std::memory_order_release);
        return m_last = row;
    }

private:
    Row m_head{};
    Row *m_last = &m_head;
};

void initCpTable(CodePageTable &table) {
    TOV_TRACE_ENTER("initCpTable");
    const std::int32_t id =
        LNG1_GetLocaleNumInfo(LNG1_PrivateFunction_GetProcessLocale(), LNG1_CODEPAGE_ID, 0);
    char name[32] = {};
    LNG1_GetCodepageName(id, name, sizeof name);
    const struct {
        std::int32_t id;
        const char *name;
    } rows[] = {
        {id, name},
        {TovCodePage::Utf16Little, "UTF-16LE"},
        {TovCodePage::Utf16Big, "UTF-16BE"},
        {TovCodePage::Utf16Host, "UTF-16"},
        {TovCodePage::Utf16Host, "UTF-2"},
        {TovCodePage::Utf16Host, "IBM-1200"},
        {TovCodePage::Utf16Host, "IBM1200"},
        {TovCodePage::Utf16Host, "CP1200"},
        {TovCodePage::Utf16Host, "ISO-10646-UCS-2"},
        {TovCodePage::Utf8, "UTF-8"},
    };
    for (const auto &row : rows)
        table.append(row.id, tovToUnicode(row.name, 0xFFFFFFFFU, false));
    TOV_TRACE_LEAVE();
}

struct Context {
    tovdetail::ModuleMutex mutex;
    CodePageTable table;

    Context() { initCpTable(table); }
};

// Looks for the name behind `last`, for another thread may have been first, and appends it. Traces nothing:
// the mutex is held, which a fork waits for, too.
std::pair<const TovCodePage *, bool> findOrAppend(Context &pool, const CodePageTable::Row *last,
                                                  std::int32_t id, TovUString name) {
    const std::lock_guard lock(pool.mutex);
    if (const auto *row = CodePageTable::find(last, name))
        return {&row->page, false};
    return {&pool.table.append(id, std::move(name))->page, true};
}

Context &context() {
    return *static_cast<Context *>(TovCpMgr::ms_pool.get(TovCpMgr::ms_lock, TovCpMgr_init));
}

} // namespace

void loadCpTable() {
    if (tovdetail::loadAcquire(TovCpMgr::ms_pool.m_stat) != TovPoolCtrl::Ready)
        TovCpMgr::ms_pool.init(TovCpMgr::ms_lock, TovCpMgr_init);
}

void TovCpMgr_init() { tovdetail::initModule<Context>(TovCpMgr::ms_pool, TovCpMgr_release); }

void TovCpMgr_release() { tovdetail::releaseModule<Context>(TovCpMgr::ms_pool); }

const TovCodePage *tovGetCodePage(const TovUChar *cpName) {
    TOV_TRACE_ENTER("tovGetCodePage", TOV_VALUE(cpName));
    loadCpTable();
    Context &pool = context();
    CodePageTable &table = pool.table;
    if (!cpName || *cpName == 0)
        return TOV_TRACE_RESULT(&table.first()->page);

    TovUString upperName = tovToUpper(cpName);
    const CodePageTable::Row *last = table.beforeFirst();
    if (const auto *row = CodePageTable::find(last, upperName))
        return TOV_TRACE_RESULT(&row->page);

    const TovString bytes = tovToMbcs(cpName, 0xFFFFFFFFU, false);
    if (bytes.size() > 32)
        TOV_RAISE_AT(174, 0, TOVRC_NLS_ERROR, tovdetail::invalidCodePage(&bytes));
    // A name that converts in part only would be looked up by that part, and add a row under its whole self.
    if (tovToUnicode(bytes.data(), static_cast<std::uint32_t>(bytes.size()), false) != cpName)
        return TOV_TRACE_RESULT(static_cast<const TovCodePage *>(nullptr));
    long unused = 0;
    const std::int32_t id = LNG1_GetCodepageId(bytes.c_str(), &unused);
    if (id <= 0)
        return TOV_TRACE_RESULT(static_cast<const TovCodePage *>(nullptr));

    const auto [row, isNew] = findOrAppend(pool, last, id, std::move(upperName));
    if (isNew)
        return TOV_TRACE_RESULT(row);
    TOV_TRACE_LEAVE();
    return row;
}

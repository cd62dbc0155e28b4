// How records learn their levels: TRC1_Sync, and the advance of the sequence words at run time.
//
// The levels in force are one pointer. TRC1_Sync reads the file's sequence word before that pointer,
// hvdTraceSetLevels stores the pointer before it advances the words: a record that was made current
// with former levels is then out of date again.
#include <services/hvd/config.h>
#include <services/hvd/keptlist.h>
#include <services/hvd/levels.h>
#include <services/hvd/quiet.h>
#include <services/hvdctl.h>
#include <tovutil/tovexport.h>

#include <link.h>

#include <new>

namespace hvd {

namespace {

/// A source file: its sequence word, and one of its records, by which to know the word again.
struct Unit {
    Unit *next;
    TRC1_SEQUENCE *word;
    std::atomic<TRC1_EPB *> witness;
};

constinit KeptList<Unit> s_units;
constinit std::atomic<const LevelText *> s_levels{nullptr}; // null: those of the environment

const LevelText *currentLevels() {
    if (const LevelText *levels = s_levels.load(std::memory_order_seq_cst))
        return levels;
    const Config *environment = config();
    return environment ? environment->levels : nullptr;
}

Unit *makeUnit(TRC1_SEQUENCE *word, TRC1_EPB *witness) {
    void *room = std::malloc(sizeof(Unit));
    return room ? new (room) Unit{nullptr, word, witness} : nullptr;
}

bool noteUnit(TRC1_EPB *record) {
    TRC1_SEQUENCE *const word = record->unitSequence;
    Unit *unit = s_units.findOrAdd([&](const Unit &known) { return known.word == word; },
                                   [&] { return makeUnit(word, record); });
    // The word may have been another library's, long unloaded: the newest record vouches for it.
    if (unit)
        unit->witness.store(record, std::memory_order_release);
    return unit != nullptr;
}

/// One thread at a time writes a record, so that none with former levels comes after one with later
/// ones. Who finds it taken leaves the record as it is, and asks again at the next use; so does every
/// thread of a child that was forked from under the writer.
class RecordWriter {
public:
    explicit RecordWriter(TRC1_EPB &record) : m_taken(record.reserved[0]) {
        std::uint32_t none = 0;
        m_mine = m_taken.compare_exchange_strong(none, 1, std::memory_order_acquire);
    }
    ~RecordWriter() {
        if (m_mine)
            m_taken.store(0, std::memory_order_release);
    }
    RecordWriter(const RecordWriter &) = delete;
    RecordWriter &operator=(const RecordWriter &) = delete;

    explicit operator bool() const { return m_mine; }

private:
    const std::atomic_ref<std::uint32_t> m_taken;
    bool m_mine;
};

std::uint32_t sync(TRC1_EPB &record) {
    // A file that can't be noted would miss the next change, so its records stay out of date.
    const bool noted = noteUnit(&record);
    const RecordWriter writer(record);
    const std::uint32_t sequence = record.unitSequence->load(std::memory_order_acquire);
    const LevelText *levels = currentLevels();
    const std::uint32_t level = levels ? levelsFor(levels->text(), record) : 0;
    if (levels && noted && writer) {
        record.level.store(level, std::memory_order_relaxed);
        record.sequence.store(sequence, std::memory_order_release);
    }
    return level;
}

/// One loaded object, while the loader can't unload it.
class LoadedObject {
public:
    explicit LoadedObject(const dl_phdr_info &info) : m_info(info) {}

    bool holds(const void *address, std::size_t size, ElfW(Word) access) const {
        const auto begin = reinterpret_cast<std::uintptr_t>(address) - m_info.dlpi_addr;
        for (int at = 0; at < m_info.dlpi_phnum; ++at) {
            const ElfW(Phdr) &part = m_info.dlpi_phdr[at];
            if (part.p_type == PT_LOAD && (part.p_flags & access) == access && begin >= part.p_vaddr &&
                begin - part.p_vaddr <= part.p_memsz && size <= part.p_memsz - (begin - part.p_vaddr))
                return true;
        }
        return false;
    }

    // Whatever lies at the witness's place now is only read: this object may have taken the place of
    // the library that the unit was in. A record that still names the word makes it a sequence word.
    [[gnu::no_sanitize_address]] bool stillHas(const Unit &unit) const {
        const TRC1_EPB *record = unit.witness.load(std::memory_order_acquire);
        return holds(unit.word, sizeof *unit.word, PF_R | PF_W) &&
               holds(record, sizeof *record, PF_R | PF_W) && record->unitSequence == unit.word;
    }

private:
    const dl_phdr_info &m_info;
};

int advanceWords(dl_phdr_info *info, std::size_t, void *) {
    const LoadedObject object(*info);
    for (Unit *unit = s_units.head(); unit; unit = unit->next)
        if (object.stillHas(*unit))
            unit->word->fetch_add(1, std::memory_order_release);
    return 0;
}

} // namespace

} // namespace hvd

TOV_EXPORT std::uint32_t TRC1_Sync(TRC1_EPB *record) {
    const hvd::KeepErrno keep;
    return hvd::sync(*record);
}

TOV_EXPORT bool hvdTraceSetLevels(const char *levels) {
    const hvd::KeepErrno keep;
    const std::string_view text = levels ? levels : "";
    hvd::config(); // first, so that it can't come later than what is set here
    const hvd::LevelText *kept = hvd::keepLevels(text);
    if (!kept) {
        hvd::report("hvdTraceSetLevels: out of memory; the levels stay");
        return false;
    }
    hvd::s_levels.store(kept, std::memory_order_seq_cst);
    dl_iterate_phdr(hvd::advanceWords, nullptr);
    return hvd::checkLevels(text, "hvdTraceSetLevels");
}

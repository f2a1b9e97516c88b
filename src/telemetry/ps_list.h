// ps_list.h - the ring of process records.
#ifndef ZORV_TELEMETRY_PS_LIST_H
#define ZORV_TELEMETRY_PS_LIST_H

#include <memory>

#include <zorv/ps.h>

#include "core/own.h"
#include "telemetry/ps_fds.h"

namespace zorv {

inline void free_record(zorv_ps_record *record)
{
    free(record->comm);
    free(record->cmdline);
    free_fds(record->fds);
    free(record);
}

using Record = std::unique_ptr<zorv_ps_record, Closer<free_record>>;
using PsList = std::unique_ptr<zorv_ps_list, Closer<zorv_ps_list_free>>;

// What closes the ring: the list, in the place of a record. Only ever compared.
inline zorv_ps_record *end_of(zorv_ps_list &list)
{
    return reinterpret_cast<zorv_ps_record *>(&list);
}

inline void append(zorv_ps_list &list, Record record)
{
    record->prev = list.last;
    record->next = end_of(list);
    (list.last == end_of(list) ? list.first : list.last->next) = record.get();
    list.last = record.release();
    ++list.count;
}

// The first record, unlinked; empty when there is none.
inline Record take_first(zorv_ps_list &list)
{
    if (list.first == end_of(list))
        return nullptr;
    Record record(list.first);
    list.first = record->next;
    (list.first == end_of(list) ? list.last : list.first->prev) = end_of(list);
    --list.count;
    return record;
}

} // namespace zorv

#endif

/*
 * The measures, file by file.
 */
#ifndef ZEL_BENCH_MEASURES_H
#define ZEL_BENCH_MEASURES_H

#include "harness.h"

namespace bench
{

void add_store_measures();
void add_queue_measures();
void add_hash_table_measures();
void add_encoding_measures();
void add_request_measures();
void add_memory_measures();
void add_store_growth_measures();

inline void add_measures()
{
    add_store_measures();
    add_queue_measures();
    add_hash_table_measures();
    add_encoding_measures();
    add_request_measures();
    add_memory_measures();
    add_store_growth_measures();
}

} // namespace bench

#endif

/* Is a store sound, and does it contradict itself? */
#ifndef ZEL_STORE_CHECK_H
#define ZEL_STORE_CHECK_H

#include "model.h"

#include <string>
#include <vector>

namespace zel_store
{

struct finding {
    std::string kind; /**< one word that programs look for; the man page lists them */
    std::string title, meaning, advice;
    std::string table, key; /**< where the rows are, and the column that names them */
    std::vector<std::string> rows;
};

std::vector<finding> check(const store &read);

std::vector<std::string> finding_lines(const std::vector<finding> &findings);

} // namespace zel_store

#endif

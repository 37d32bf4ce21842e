/* Is a store sound, and does it contradict itself? */
#ifndef ZEL_STORE_CHECK_H
#define ZEL_STORE_CHECK_H

#include "model.h"

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace zel_store
{

struct finding {
    std::string kind; /**< one word that programs look for; the man page lists them */
    std::string title, means, action;
    std::string table = {}, key = {}; /**< where the rows are, and the column that names them */
    std::vector<std::string> rows = {};
};

/** What is wrong with the file as such: what can be read of it is not all that was written. */
std::vector<finding> check_file(const store &read);

/** That, and what contradicts itself. */
std::vector<finding> check_all(const store &read);

std::vector<std::string> lines_of(const std::vector<finding> &findings);
nlohmann::ordered_json json_of(const std::vector<finding> &findings);

} // namespace zel_store

#endif

/* A store at a glance. */
#ifndef ZEL_STORE_SHOW_H
#define ZEL_STORE_SHOW_H

#include "model.h"

#include <functional>
#include <nlohmann/json.hpp>

namespace zel_store
{

struct show_options {
    narrowing wanted;
    bool shows_secrets = false;
    /** What a watcher knows besides of a transfer (and the item of a download): its speed; may be empty. */
    std::function<std::string(const row &transfer, const row *content)> further;
};

/** The lines about the file itself: path, owner, mode, size, what lies beside it, who has it open. */
std::vector<std::string> file_lines(const file_facts &facts);
nlohmann::ordered_json file_json(const file_facts &facts);

/** All lines of the view. */
std::vector<std::string> show_lines(const store &read, const show_options &options);
nlohmann::ordered_json show_json(const store &read, const show_options &options);

/** A document as it is written out: bytes that are no text are replaced, since JSON cannot hold them. */
std::string text_of(const nlohmann::ordered_json &document, int indentation = 2);

} // namespace zel_store

#endif

// What the server answers about one document, as protocol JSON: diagnostics,
// hover, definitions, references, completion and symbols. Everything comes
// from the checker's model and the library's tables.
#ifndef QZLS_ANSWERS_H
#define QZLS_ANSWERS_H

#include "documents.h"

#include <nlohmann/json.hpp>

namespace qzls {

using Json = nlohmann::json;

Json RangeJson(const Document& document, size_t begin, size_t end, Encoding encoding);

Json Diagnostics(const Document& document, Encoding encoding);
Json Hover(const Document& document, size_t offset, Encoding encoding);
Json Definition(const Document& document, size_t offset, Encoding encoding);
Json References(const Document& document, size_t offset, bool includeDeclaration, Encoding encoding);
Json Completion(const Document& document, size_t offset, Encoding encoding);
Json DocumentSymbols(const Document& document, Encoding encoding);

}  // namespace qzls

#endif

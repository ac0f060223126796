// SPDX-License-Identifier: MIT
// Compiles as it is, and is refused with what stands below one of the names: check-refusals tries each.
#include "kel-http/QueryEncoder.h"

#include <atomic>
#include <cstdint>
#include <vector>

using kel::http::QueryEncoder;

enum Enumeration { enumerator };

void taken(QueryEncoder& query, const char* text, std::int64_t number, const std::atomic<unsigned>& counter) {
    query.addParameter("n", text);
    query.addParameter("n", std::string(text));
    query.addParameter("n", std::string_view(text));
    query.addParameter("n", number);
    query.addParameter("n", counter);
    query.addParameter("n", enumerator);
    query.addParameter(text, std::uint8_t(1));
}

#ifdef BOOL  // refused: takes a text or a whole number
void refused(QueryEncoder& query, bool value) {
    query.addParameter("n", value);
}
#endif
#ifdef ELEMENT_OF_A_VECTOR_OF_BOOL  // refused: takes a text or a whole number
void refused(QueryEncoder& query, std::vector<bool>& value) {
    query.addParameter("n", value[0]);
}
#endif
#ifdef CHARACTER  // refused: takes a text or a whole number
void refused(QueryEncoder& query) {
    query.addParameter("n", 'c');
}
#endif
#ifdef WIDE_CHARACTER  // refused: takes a text or a whole number
void refused(QueryEncoder& query) {
    query.addParameter("n", L'c');
}
#endif
#ifdef UTF16_CHARACTER  // refused: takes a text or a whole number
void refused(QueryEncoder& query) {
    query.addParameter("n", u'c');
}
#endif
#ifdef UTF32_CHARACTER  // refused: takes a text or a whole number
void refused(QueryEncoder& query) {
    query.addParameter("n", U'c');
}
#endif
#ifdef FLOAT  // refused: takes a text or a whole number
void refused(QueryEncoder& query) {
    query.addParameter("n", 1.5F);
}
#endif
#ifdef DOUBLE  // refused: a floating-point number as fmt::format(
void refused(QueryEncoder& query) {
    query.addParameter("n", 1.5);
}
#endif
#ifdef LONG_DOUBLE  // refused: takes a text or a whole number
void refused(QueryEncoder& query) {
    query.addParameter("n", 1.5L);
}
#endif
#ifdef HOLDER_OF_A_DOUBLE  // refused: takes a text or a whole number
void refused(QueryEncoder& query, const std::atomic<double>& value) {
    query.addParameter("n", value);
}
#endif
#ifdef POINTER  // refused: takes a text or a whole number
void refused(QueryEncoder& query, const int* value) {
    query.addParameter("n", value);
}
#endif
#ifdef NULL_POINTER  // refused: takes a text or a whole number
void refused(QueryEncoder& query) {
    query.addParameter("n", nullptr);
}
#endif

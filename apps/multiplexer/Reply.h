// What clients are told.
#ifndef MULTIPLEXER_REPLY_H
#define MULTIPLEXER_REPLY_H

#include <string>
#include <string_view>

namespace mux {

// The tunnel stands, and stays encrypted or not.
std::string openedReply(bool encrypted);

// The way on is free: the request for a tunnel may come. What a proxy says.
std::string jumpedReply();

// Anything else. `reason` is for people; `more` is further headers, each with its line end.
std::string refusal(int status, std::string_view reason, std::string_view more = {});

// A page of plain text.
std::string pageReply(std::string_view page);

} // namespace mux

#endif

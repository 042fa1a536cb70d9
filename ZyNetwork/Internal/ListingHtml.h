// Readers of the HTML pages that web servers give for a directory (nginx,
// Apache, lighttpd, Python's http.server and the like), and the HTML text
// helpers they share: one character-reference decoder, link extraction and
// link classification. Pure functions over text.
// Internal: not installed, not exported.
#pragma once

#include <string>
#include <vector>

#include "ZyNetwork/Internal/ListingParsers.h"

namespace zy::listing
{
// Which character references DecodeEntities resolves; anything else stays as
// written.
enum class EntitySet
{
    // The named references of XML plus &nbsp;, and numeric ones of any code
    // point (as UTF-8; an invalid one as U+FFFD), within ten bytes of the '&'.
    kListingPage,
    // The named references of XML, and numeric ones of at most six digits
    // that give a byte from 1 to 0x7F.
    kAsciiOnly
};
std::string DecodeEntities(const std::string& text, EntitySet set);

// The listed path with one leading and one trailing '/'.
std::string DirectoryPrefix(const std::string& path);

// The entries of a listing page of the directory `prefix` (a decoded path
// with leading and trailing '/'): every <a href> that names an entry directly
// inside it, once, in page order, with the size and date that follow the
// link on its line when that text holds nothing else ("1.2K", "-",
// "23-Nov-2026 13:59", "2026-11-23 13:59:07", "2026-Nov-24 07:02:25"; a
// size with a unit is not exact). Names are decoded; a directory's name has
// no trailing '/'. Entries add to `entries`.
void ReadHtmlListing(const std::string& page, const std::string& prefix, std::vector<Entry>& entries);

// The targets of every href=" in `html`, in page order: the text between the
// opening quote and the next '"'. A link without a closing quote before the
// end of the page is ignored. The marker is matched without regard to case.
std::vector<std::string> ExtractLinks(const std::string& html);

// What a link on a listing page of the directory `directoryPath` (an encoded
// absolute path ending in '/') points to.
struct ListingLink
{
    enum Kind
    {
        kIgnore,     // elsewhere: up, the page itself, another site, a query
        kFile,
        kDirectory
    } kind = kIgnore;
    std::string name;  // plain (decoded) path below the directory; a
                       // directory's ends in '/'
};

// Classifies `link`: its query and fragment are dropped and character
// references decoded (EntitySet::kAsciiOnly); an absolute path counts only
// when it lies below `directoryPath`; a link with a scheme or "//" authority
// only when it names `origin` and a path below the directory. Any "." or ".."
// segment, an empty segment, or a name that decodes to a control character,
// '/' or '\' inside a segment makes the link kIgnore, so a listing can never
// lead up or to the page itself.
ListingLink ClassifyListingLink(const std::string& link, const std::string& origin,
                                const std::string& directoryPath);
}  // namespace zy::listing

// XML files as people keep them, in the form that the library holds whole: it takes what stands around the root element
// and CDATA sections for granted, and texts and values as they are written.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// In front of a text that begins with blanks, which the library would drop. No XML file can hold this byte.
inline constexpr char kKeepBlanks = '\x01';

struct XmlText {
    std::string head;      ///< what stands before the root element, as it is
    std::string root;      ///< the root element for the library to read
    std::string tail;      ///< what stands behind it
    std::string root_name; ///< empty if there is no root element
    bool is_utf8 = true;   ///< nothing else is declared
    /// What writing the root element again would change or lose, each with its line.
    std::vector<std::string> losses;
};

/// Reads a file's text. Fails, with the line, for what is no XML or has names that the library does not know.
XmlText ReadXmlText(const std::string& file, std::string_view text);

using XmlAttributes = std::vector<std::pair<std::string, std::string>>;

/// The attributes of the element that a text begins with, as it is written by the library.
XmlAttributes StartTagAttributes(std::string_view text);

bool IsXmlName(std::string_view name);

/// A text or value as it must stand in a file.
std::string EscapedText(std::string_view text);
std::string EscapedValue(std::string_view text);
/// The text that stands for what is in a file. Characters beyond ASCII are only made for UTF-8.
std::string UnescapedText(std::string_view text, bool is_utf8);

std::string WithoutMarks(std::string text);

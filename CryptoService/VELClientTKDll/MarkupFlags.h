#pragma once
// The flag values of the markup document. They are reachable as CMarkup::MNF_WITHREFS and, for
// short, as MNF_WITHREFS.

struct MarkupFlags {
  enum MarkupDocFlags {
    MDF_UTF16LEFILE = 1,
    MDF_UTF8PREAMBLE = 4,
    MDF_IGNORECASE = 8,
    MDF_READFILE = 16,
    MDF_WRITEFILE = 32,
    MDF_APPENDFILE = 64,
    MDF_UTF16BEFILE = 128,
  };
  // What a caller asks of AddElem, AddNode and EscapeText, and finds at an element.
  enum MarkupNodeFlags {
    MNF_WITHCDATA = 1,
    MNF_WITHNOLINES = 2,
    MNF_WITHXHTMLSPACE = 4,
    MNF_WITHREFS = 8,
    MNF_WITHNOEND = 16,
    MNF_ESCAPEQUOTES = 256,
    MNF_NONENDED = 1048576,
    MNF_ILLDATA = 2097152,
  };
  enum MarkupNodeFlagsInternal {
    MNF_REPLACE = 4096,
    MNF_INSERT = 8192,
    MNF_CHILD = 16384,
    MNF_QUOTED = 32768,
    MNF_EMPTY = 65536,
    MNF_DELETED = 131072,
    MNF_FIRST = 524288,
  };
  enum MarkupNodeFlagsInternal2 {
    MNF_PUBLIC = 3145728,
    MNF_ILLFORMED = 8388608,
    MNF_USER = 251658240,
  };
  enum MarkupNodeType {
    MNT_ELEMENT = 1,
    MNT_TEXT = 2,
    MNT_WHITESPACE = 4,
    MNT_TEXT_AND_WHITESPACE = 6,
    MNT_CDATA_SECTION = 8,
    MNT_PROCESSING_INSTRUCTION = 16,
    MNT_COMMENT = 32,
    MNT_DOCUMENT_TYPE = 64,
    MNT_EXCLUDE_WHITESPACE = 123,
    MNT_LONE_END_TAG = 128,
    MNT_NODE_ERROR = 32768,
  };
  // What the value and the number of a result stand for; 0 means "tagname" and "offset".
  enum MarkupResultCode {
    MRC_TYPE = 1,
    MRC_ENCODING = 2,
    MRC_MSG = 4,
    MRC_COUNT = 8,
    MRC_LENGTH = 16,
    MRC_NUMBER = 32,
  };
};

using MarkupDocFlags = MarkupFlags::MarkupDocFlags;
using MarkupNodeFlags = MarkupFlags::MarkupNodeFlags;
using MarkupNodeFlagsInternal = MarkupFlags::MarkupNodeFlagsInternal;
using MarkupNodeFlagsInternal2 = MarkupFlags::MarkupNodeFlagsInternal2;
using MarkupNodeType = MarkupFlags::MarkupNodeType;
using MarkupResultCode = MarkupFlags::MarkupResultCode;

constexpr auto MDF_UTF16LEFILE = MarkupFlags::MDF_UTF16LEFILE;
constexpr auto MDF_UTF8PREAMBLE = MarkupFlags::MDF_UTF8PREAMBLE;
constexpr auto MDF_IGNORECASE = MarkupFlags::MDF_IGNORECASE;
constexpr auto MDF_READFILE = MarkupFlags::MDF_READFILE;
constexpr auto MDF_WRITEFILE = MarkupFlags::MDF_WRITEFILE;
constexpr auto MDF_APPENDFILE = MarkupFlags::MDF_APPENDFILE;
constexpr auto MDF_UTF16BEFILE = MarkupFlags::MDF_UTF16BEFILE;
constexpr auto MNF_WITHCDATA = MarkupFlags::MNF_WITHCDATA;
constexpr auto MNF_WITHNOLINES = MarkupFlags::MNF_WITHNOLINES;
constexpr auto MNF_WITHXHTMLSPACE = MarkupFlags::MNF_WITHXHTMLSPACE;
constexpr auto MNF_WITHREFS = MarkupFlags::MNF_WITHREFS;
constexpr auto MNF_WITHNOEND = MarkupFlags::MNF_WITHNOEND;
constexpr auto MNF_ESCAPEQUOTES = MarkupFlags::MNF_ESCAPEQUOTES;
constexpr auto MNF_NONENDED = MarkupFlags::MNF_NONENDED;
constexpr auto MNF_ILLDATA = MarkupFlags::MNF_ILLDATA;
constexpr auto MNF_REPLACE = MarkupFlags::MNF_REPLACE;
constexpr auto MNF_INSERT = MarkupFlags::MNF_INSERT;
constexpr auto MNF_CHILD = MarkupFlags::MNF_CHILD;
constexpr auto MNF_QUOTED = MarkupFlags::MNF_QUOTED;
constexpr auto MNF_EMPTY = MarkupFlags::MNF_EMPTY;
constexpr auto MNF_DELETED = MarkupFlags::MNF_DELETED;
constexpr auto MNF_FIRST = MarkupFlags::MNF_FIRST;
constexpr auto MNF_PUBLIC = MarkupFlags::MNF_PUBLIC;
constexpr auto MNF_ILLFORMED = MarkupFlags::MNF_ILLFORMED;
constexpr auto MNF_USER = MarkupFlags::MNF_USER;
constexpr auto MNT_ELEMENT = MarkupFlags::MNT_ELEMENT;
constexpr auto MNT_TEXT = MarkupFlags::MNT_TEXT;
constexpr auto MNT_WHITESPACE = MarkupFlags::MNT_WHITESPACE;
constexpr auto MNT_TEXT_AND_WHITESPACE = MarkupFlags::MNT_TEXT_AND_WHITESPACE;
constexpr auto MNT_CDATA_SECTION = MarkupFlags::MNT_CDATA_SECTION;
constexpr auto MNT_PROCESSING_INSTRUCTION = MarkupFlags::MNT_PROCESSING_INSTRUCTION;
constexpr auto MNT_COMMENT = MarkupFlags::MNT_COMMENT;
constexpr auto MNT_DOCUMENT_TYPE = MarkupFlags::MNT_DOCUMENT_TYPE;
constexpr auto MNT_EXCLUDE_WHITESPACE = MarkupFlags::MNT_EXCLUDE_WHITESPACE;
constexpr auto MNT_LONE_END_TAG = MarkupFlags::MNT_LONE_END_TAG;
constexpr auto MNT_NODE_ERROR = MarkupFlags::MNT_NODE_ERROR;
constexpr auto MRC_TYPE = MarkupFlags::MRC_TYPE;
constexpr auto MRC_ENCODING = MarkupFlags::MRC_ENCODING;
constexpr auto MRC_MSG = MarkupFlags::MRC_MSG;
constexpr auto MRC_COUNT = MarkupFlags::MRC_COUNT;
constexpr auto MRC_LENGTH = MarkupFlags::MRC_LENGTH;
constexpr auto MRC_NUMBER = MarkupFlags::MRC_NUMBER;

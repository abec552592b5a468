// SetDoc and walking against pugixml, on wide text when its source is at hand
// (VCTK_PUGIXML_SOURCE); else it is pugixml_narrow, which has a quarter of the bytes to move.
// SetDoc also against expat and libxml2 on UTF-8.
//
// Warm: freed memory is kept for the next run. Fresh: it goes back to the system, so that every
// page is touched for the first time. Floor: what every parser that keeps the text has to do.
#include <benchmark/benchmark.h>
#include <expat.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <functional>
#include <memory>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "Markup.h"

namespace {

using Text = std::basic_string<pugi::char_t>;

constexpr bool kWidePeer = sizeof(pugi::char_t) == sizeof(wchar_t);
const char* const kPeer = kWidePeer ? "pugixml" : "pugixml_narrow";

struct Document {
  const char* name;
  std::wstring wide;
  std::string utf8;
  Text peer;
  size_t elements;
};

std::wstring SmallElements() {
  std::wstring text = L"<root>";
  for (int i = 0; i < 200000; ++i) {
    std::wstring item = L"<item id=\"" + std::to_wstring(i) + L"\">value ";
    item.resize(43, L'x');
    text += item + L"</item>";
  }
  return text + L"</root>";
}

std::wstring Attributes() {
  std::wstring text = L"<root>";
  for (int i = 0; text.length() < 10000000; ++i) {
    text += L"<e";
    for (int k = 0; k < 20; ++k) {
      text += L" attr" + std::to_wstring(k) + L"=\"value number " + std::to_wstring(i + k) + L"\"";
    }
    text += L"/>";
  }
  return text + L"</root>";
}

std::wstring KeyList() {
  std::wstring text = L"<authinfo><liblist>";
  while (text.length() < 2000) {
    text +=
        L"<lib type=\"SKF\" version=\"1.1\" dllname=\"TmV3RGxsLnNv\"><algid val=\"SUYyMDAuc28=\">"
        L"<sm2 val=\"SM3\"/><rsa val=\"SHA1\"/></algid><pvid val=\"MTIzNDU2\"/></lib>";
  }
  return text + L"</liblist></authinfo>";
}

Document MakeDocument(const char* name, const std::wstring& text) {
  const CMarkup doc(text);
  return {name, text, std::string(text.begin(), text.end()), Text(text.begin(), text.end()),
          static_cast<size_t>(doc.m_iPosFree) - 1};
}

const Document& Get(int index) {
  static const Document documents[] = {MakeDocument("elements", SmallElements()),
                                       MakeDocument("attributes", Attributes()),
                                       MakeDocument("key_list", KeyList())};
  return documents[index];
}

size_t WalkMarkup(CMarkup& doc) {
  size_t sum = 0;
  doc.ResetPos();
  doc.FindElem();
  doc.IntoElem();
  while (doc.FindElem()) sum += 1 + doc.GetAttrib(L"id").length();
  return sum;
}

size_t WalkPeer(const pugi::xml_document& doc) {
  size_t sum = 0;
  for (const pugi::xml_node node : doc.document_element().children()) {
    sum += 1 + Text(node.attribute(PUGIXML_TEXT("id")).value()).length();
  }
  return sum;
}

void XMLCALL CountStart(void* data, const XML_Char*, const XML_Char**) {
  ++*static_cast<size_t*>(data);
}

size_t RunExpat(const Document& d) {
  size_t count = 0;
  const XML_Parser parser = XML_ParserCreate("UTF-8");
  XML_SetUserData(parser, &count);
  XML_SetStartElementHandler(parser, CountStart);
  XML_Parse(parser, d.utf8.data(), static_cast<int>(d.utf8.length()), 1);
  XML_ParserFree(parser);
  return count;
}

void CountSax(void* data, const xmlChar*, const xmlChar*, const xmlChar*, int, const xmlChar**, int,
              int, const xmlChar**) {
  ++*static_cast<size_t*>(data);
}

size_t RunLibxml2(const Document& d) {
  size_t count = 0;
  xmlSAXHandler handler = {};
  handler.initialized = XML_SAX2_MAGIC;
  handler.startElementNs = CountSax;
  const int length = static_cast<int>(d.utf8.length());
  const xmlParserCtxtPtr context = xmlCreateMemoryParserCtxt(d.utf8.data(), length);
  *context->sax = handler;
  context->userData = &count;
  xmlCtxtUseOptions(context, XML_PARSE_HUGE);
  xmlParseDocument(context);
  xmlFreeParserCtxt(context);
  return count;
}

void RunMarkup(const Document& d) {
  CMarkup doc;
  benchmark::DoNotOptimize(doc.SetDoc(d.wide));
}

void RunPugixml(const Document& d) {
  pugi::xml_document doc;
  benchmark::DoNotOptimize(doc.load_string(d.peer.c_str()).status);
}

void RunCopy(const Document& d) {
  std::wstring copy;
  copy = d.wide;
  benchmark::DoNotOptimize(copy.data());
}

// What no parser of this kind can do without: the text copied, looked at once, and 32 bytes written
// for each element.
void RunFloor(const Document& d) {
  std::wstring copy;
  copy = d.wide;
  const std::unique_ptr<ElemPos[]> elems(new ElemPos[d.elements]);
  size_t count = 0;
  const wchar_t* const end = copy.c_str() + copy.length();
  for (const wchar_t* p = copy.c_str(); (p = wmemchr(p, L'<', end - p)) != nullptr; ++p) {
    if (p[1] == L'/') continue;
    const int start = static_cast<int>(p - copy.c_str());
    elems[count++] = {start, 1, 1, 0, 0, start, start, start, start};
  }
  if (count != d.elements) abort();
  benchmark::DoNotOptimize(elems.get());
}

void SetHeap(bool fresh) {
  mallopt(M_MMAP_THRESHOLD, fresh ? 65536 : 1 << 25);
  mallopt(M_TRIM_THRESHOLD, fresh ? 65536 : 2000000000);
  if (fresh) return;
  // Pages that were touched, in blocks small enough to lie in the heap, for all that a run takes.
  std::vector<std::unique_ptr<char[]>> blocks;
  for (int i = 0; i < 8; ++i) {
    blocks.emplace_back(new char[30 << 20]);
    memset(blocks.back().get(), 1, 30 << 20);
  }
  benchmark::DoNotOptimize(blocks.data());
}

void CheckResults() {
  for (int i = 0; i < 3; ++i) {
    CMarkup doc;
    pugi::xml_document peer;
    const bool good = doc.SetDoc(Get(i).wide) && peer.load_string(Get(i).peer.c_str());
    const size_t elements = Get(i).elements;
    if (!good || WalkMarkup(doc) != WalkPeer(peer) || RunExpat(Get(i)) != elements ||
        RunLibxml2(Get(i)) != elements) {
      fprintf(stderr, "%s: the results differ: %zu elements, expat %zu, libxml2 %zu\n", Get(i).name,
              elements, RunExpat(Get(i)), RunLibxml2(Get(i)));
      exit(1);
    }
  }
}

void Register(const std::string& name, const std::function<void(const Document&)>& run, int index,
              bool fresh) {
  const std::string full = std::string(Get(index).name) + (fresh ? "/fresh/" : "/warm/") + name;
  benchmark::RegisterBenchmark(full.c_str(), [=](benchmark::State& state) {
    SetHeap(fresh);
    for (auto _ : state) {
      run(Get(index));
      if (!fresh) continue;
      state.PauseTiming();
      malloc_trim(0);
      state.ResumeTiming();
    }
  });
}

void Walk(benchmark::State& state, bool markup) {
  CMarkup doc(Get(0).wide);
  pugi::xml_document peer;
  peer.load_string(Get(0).peer.c_str());
  for (auto _ : state) benchmark::DoNotOptimize(markup ? WalkMarkup(doc) : WalkPeer(peer));
}

}  // namespace

int main(int argc, char** argv) {
  CheckResults();
  for (int i = 0; i < 3; ++i) {
    for (const bool fresh : {false, true}) {
      Register("markup", RunMarkup, i, fresh);
      Register(kPeer, RunPugixml, i, fresh);
      Register("copy", RunCopy, i, fresh);
      Register("floor", RunFloor, i, fresh);
    }
    Register("expat", RunExpat, i, false);
    Register("libxml2", RunLibxml2, i, false);
  }
  benchmark::RegisterBenchmark("walk/markup", Walk, true);
  benchmark::RegisterBenchmark((std::string("walk/") + kPeer).c_str(), Walk, false);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}

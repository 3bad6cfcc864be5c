// Summary lists in files: loading and saving a LIST "INFO", reading one item from a file, and
// the summary records of a file for an item list.
#include <stdlib.h>
#include <string.h>

#include "ky_list.h"
#include "ky_riff.h"
#include "ky_status.h"
#include "ky_summary.h"
#include "meta_io.h"

using namespace ky::meta;

namespace {

constexpr DWORD kList = Fourcc("LIST");
constexpr DWORD kInfo = Fourcc("INFO");

}  // namespace

extern "C" {

HRESULT KYAPI KySummary_Load(HANDLE hFile, SUMMARYLIST *table, LONG *remaining) {
  if (!table || !remaining) return E_POINTER;
  table->items = nullptr;
  LONG left = *remaining;
  DWORD start = 0;
  riff_SaveLocation(hFile, &start);
  DWORD count = 0;
  HRESULT hr = riff_GetNumListEntries(hFile, &count, &left);
  table->count = count;
  if (FAILED(hr)) return hr;
  if (count == 0) return S_OK;
  table->items = static_cast<KYSUMMARYITEM *>(GlobalNew((SIZE_T)count * sizeof(KYSUMMARYITEM)));
  if (!table->items) return E_OUTOFMEMORY;
  riff_RestoreLocation(hFile, start);

  // No item can be larger than the list that holds it; a size beyond it is a damaged file
  // whose read would fail anyway (and whose size + 1 could wrap).
  const DWORD limit = *remaining > 0 ? (DWORD)*remaining : 0;
  char *scratch = nullptr;
  for (DWORD i = 0; i < count; ++i) {
    DWORD id = 0, size = 0;
    hr = riff_ReadChunkHeader(hFile, &id, &size);
    if (FAILED(hr)) break;
    table->items[i].id = id;
    if (size > limit) {
      hr = KYERR_FILE_READ;
      break;
    }
    char *text = static_cast<char *>(GlobalNew(size + 1));
    scratch = static_cast<char *>(calloc(size + 1, 1));
    if (!text || !scratch) {
      GlobalDelete(text);
      hr = E_OUTOFMEMORY;
      break;
    }
    table->items[i].text = text;
    hr = riff_ReadData(hFile, scratch, size);
    if (FAILED(hr)) break;
    // Text stops at the first zero byte, whatever the chunk holds after it.
    scratch[size] = 0;
    strcpy(text, scratch);
    free(scratch);
    scratch = nullptr;
  }
  if (FAILED(hr)) {
    free(scratch);
    KySummary_Free(table);
    table->count = 0;
    table->items = nullptr;
  }
  return hr;
}

HRESULT KYAPI KySummary_Save(HANDLE hFile, SUMMARYLIST *table, DWORD *written) {
  if (written) *written = 0;
  if (!table || table->count == 0 || !table->items) return S_OK;
  HRESULT hr = riff_WriteListHeader(hFile, kInfo, 0);
  if (FAILED(hr)) return hr;
  const DWORD sizeField = Tell(hFile) - 8;
  DWORD running = 4;
  for (DWORD i = 0; i < table->count; ++i) {
    const char *text = table->items[i].text;
    if (!text) continue;
    DWORD size = (DWORD)strlen(text) + 1;
    hr = riff_WriteChunkHeader(hFile, table->items[i].id, size);
    if (FAILED(hr)) return hr;
    char *copy = static_cast<char *>(calloc(size, 1));
    if (!copy) return E_OUTOFMEMORY;
    memcpy(copy, text, size);
    bool ok = WriteAll(hFile, copy, size);
    free(copy);
    if (!ok) return KYERR_FILE_WRITE;
    if (size & 1) {
      // The pad byte carries the item's index (low 8 bits), not zero; readers ignore it and
      // files written so far have it, so the value is kept.
      BYTE pad = (BYTE)i;
      if (!WriteAll(hFile, &pad, 1)) return KYERR_FILE_WRITE;
    }
    running += RoundEven(size) + 8;
  }
  DWORD end = Tell(hFile);
  SeekTo(hFile, sizeField);
  if (!WriteAll(hFile, &running, 4)) return KYERR_FILE_WRITE;
  SeekTo(hFile, end);
  if (written) *written = running + 8;
  return S_OK;
}

HRESULT KYAPI KySummary_GetStringFromFile(HANDLE hFile, DWORD id, char *dst, LONG capacity,
                                          LONG *remaining) {
  DWORD start = 0;
  riff_SaveLocation(hFile, &start);
  DWORD listSize = 0, size = 0;
  HRESULT hr = riff_FindListChunk(hFile, kInfo, &listSize, remaining);
  if (SUCCEEDED(hr)) {
    LONG left = (LONG)listSize;
    hr = riff_FindChunkHeader(hFile, id, &size, &left);
  }
  // An item larger than its list is a damaged file: refused before size + 1 can wrap.
  if (SUCCEEDED(hr) && size > listSize) hr = KYERR_FILE_READ;
  if (FAILED(hr)) {
    riff_RestoreLocation(hFile, start);
    return hr;
  }
  char *buf = static_cast<char *>(calloc(size + 1, 1));
  if (!buf) return E_OUTOFMEMORY;
  hr = riff_ReadData(hFile, buf, size);
  if (dst && capacity > 0) {
    size_t n = strlen(buf);
    if (n > (size_t)capacity - 1) n = (size_t)capacity - 1;
    memcpy(dst, buf, n);
    dst[n] = 0;
  }
  free(buf);
  riff_RestoreLocation(hFile, start);
  return hr;
}

HRESULT KYAPI KyFMMeta_fillSummaryFromFile(HANDLE hFile, HKYLIST list) {
  if (!hFile || hFile == INVALID_HANDLE_VALUE) return KYERR_FILE_OPEN;
  if (!list) return S_OK;
  SeekTo(hFile, 4);
  DWORD riffSize = 0, next = 0;
  if (!ReadExact(hFile, &riffSize, 4)) return KYERR_FILE_READ;
  DWORD got = 0;
  if (!ReadSome(hFile, &next, 4, &got)) return KYERR_FILE_READ;
  // A form without a form type starts its chunks at offset 8.
  if (got == 4 && next == kList) SeekTo(hFile, 8);
  else SeekTo(hFile, 12);

  LONG left = (LONG)riffSize;
  DWORD listSize = 0;
  HRESULT hr = riff_FindListChunk(hFile, kInfo, &listSize, &left);
  if (FAILED(hr)) return hr;
  SUMMARYLIST table = {0, nullptr};
  LONG listLeft = (LONG)listSize;
  hr = KySummary_Load(hFile, &table, &listLeft);
  if (FAILED(hr)) return hr;

  KYSUMMARYRECORD *rec = nullptr;
  DWORD recCapacity = 0;
  hr = S_OK;
  for (DWORD i = 0; i < table.count; ++i) {
    const char *text = table.items[i].text;
    if (!text) continue;
    int chars = MultiByteToWideChar(CP_ACP, MB_PRECOMPOSED, text, -1, nullptr, 0);
    if (chars < 1) chars = 1;
    DWORD textSize = (DWORD)chars * 2;
    DWORD recSize = 12 + textSize;
    if (recSize > recCapacity) {
      void *grown = realloc(rec, recSize);
      if (!grown) {
        hr = E_OUTOFMEMORY;
        break;
      }
      rec = static_cast<KYSUMMARYRECORD *>(grown);
      recCapacity = recSize;
    }
    rec->headerSize = 12;
    rec->id = table.items[i].id;
    rec->textSize = textSize;
    MultiByteToWideChar(CP_ACP, MB_PRECOMPOSED, text, -1, rec->text, chars);
    rec->text[chars - 1] = 0;
    hr = KyList_AllocAndInsertItem(list, rec, (LONG)recSize, -1, nullptr);
    if (FAILED(hr)) {
      hr = E_OUTOFMEMORY;
      break;
    }
  }
  free(rec);
  KySummary_Free(&table);
  return hr;
}

}  // extern "C"

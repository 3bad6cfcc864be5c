// Throughput of every sample converter and mixer, on a cache-sized buffer and on a large
// one, next to memcpy measured the same way in the same run (in alternating rounds, over
// the same number of bytes). Throughput counts the bytes read plus the bytes written per
// second (memcpy of N bytes counts 2N), so the ratio says how close a loop comes to moving
// its data at memcpy's speed.
//
//   audio_bench [--quick]     --quick: the common pairs only
#include <windows.h>
#include <stdio.h>
#include <string.h>
#include <string>
#include <vector>

#include "ky_audio.h"
#include "ky_kernel.h"

namespace {

struct TypeName {
  KYSAMPLETYPE t;
  const char *name;
  int bytes;
};
const TypeName kTypes[] = {{16, "u8", 1},       {17, "s16", 2},  {18, "s24", 3}, {19, "s32", 4},
                           {32, "f32", 4},      {33, "f64", 8},  {48, "s24in32", 4},
                           {49, "s8", 1},       {64, "s16be", 2}, {65, "s24be", 3},
                           {66, "s32be", 4}};

double Now() {
  static LARGE_INTEGER freq = [] {
    LARGE_INTEGER f;
    QueryPerformanceFrequency(&f);
    return f;
  }();
  LARGE_INTEGER c;
  QueryPerformanceCounter(&c);
  return double(c.QuadPart) / double(freq.QuadPart);
}

// Seconds per call of f, the best of one round of at least `minTime`.
template <class F> double Round(F f, double minTime) {
  int reps = 0;
  const double t0 = Now();
  double t;
  do {
    f();
    ++reps;
    t = Now() - t0;
  } while (t < minTime);
  return t / reps;
}

std::vector<uint8_t> g_src, g_dst;

// Throughput of f (moving `bytes` bytes per call) as a fraction of memcpy's over the same
// number of bytes read and written. The two are timed in alternating rounds and the best
// round of each is kept, so a busy machine slows both alike.
template <class F> double Ratio(F f, double bytes, double minTime) {
  const size_t copy = size_t(bytes / 2);
  double bestF = 1e30, bestM = 1e30;
  for (int round = 0; round < 3; ++round) {
    const double m = Round([&] { memcpy(g_dst.data(), g_src.data(), copy); }, minTime);
    const double t = Round(f, minTime);
    if (m < bestM) bestM = m;
    if (t < bestF) bestF = t;
  }
  return bestM / bestF;
}

struct Size {
  const char *name;
  size_t samples;
  double minTime;
};

struct Result {
  double cache, large; // fraction of memcpy's throughput
};

void FillSource(size_t bytes) {
  // Quiet noise: every type decodes it to ordinary values (no NaN or infinities).
  for (size_t i = 0; i < bytes; ++i) g_src[i] = uint8_t((i * 2654435761u) >> 24) & 0x3F;
}

double MemcpyRate(size_t bytes, double minTime) {
  double best = 1e30;
  for (int round = 0; round < 3; ++round) {
    const double s = Round([&] { memcpy(g_dst.data(), g_src.data(), bytes); }, minTime);
    if (s < best) best = s;
  }
  return 2.0 * double(bytes) / best;
}

} // namespace

int main(int argc, char **argv) {
  const bool quick = argc > 1 && strcmp(argv[1], "--quick") == 0;
  const Size sizes[2] = {{"cache", 4096, 0.02}, {"large", 4u << 20, 0.2}};
  // The memcpy beside a float64-into-float64 mix copies 12 bytes a sample (half of the 24
  // read and written), the most of any loop here.
  g_src.assign(sizes[1].samples * 12 + 64, 0);
  g_dst.assign(sizes[1].samples * 12 + 64, 0);
  FillSource(g_src.size());

  double memRate[2];
  for (int s = 0; s < 2; ++s) {
    // memcpy over the bytes of a float32 buffer of that many samples.
    memRate[s] = MemcpyRate(sizes[s].samples * 4, sizes[s].minTime);
  }
  printf("audio_bench: cache-sized = %u samples, large = %u samples; MB/s counts bytes read + "
         "written\n",
         unsigned(sizes[0].samples), unsigned(sizes[1].samples));
  printf("memcpy                 cache %8.0f MB/s          large %8.0f MB/s\n",
         memRate[0] / 1e6, memRate[1] / 1e6);

  auto common = [](KYSAMPLETYPE d, KYSAMPLETYPE s) {
    return (d == 32 && (s == 17 || s == 18)) || (s == 32 && (d == 17 || d == 18)) ||
           (d == 33 && s == 32);
  };
  struct Goal {
    std::string what;
    double large;
  };
  std::vector<Goal> goals;

  printf("\nconverters (unity gain)\n");
  for (const TypeName &D : kTypes)
    for (const TypeName &S : kTypes) {
      KYAUDIOCOPYFUNC f = KyAudio_GetCopyFunction2(D.t, S.t);
      if (!f || (quick && !common(D.t, S.t))) continue;
      double ratio[2];
      for (int z = 0; z < 2; ++z) {
        const size_t n = sizes[z].samples;
        ratio[z] = Ratio([&] { f(g_dst.data(), g_src.data(), LONG(n), 1.0f); },
                         double(n) * (D.bytes + S.bytes), sizes[z].minTime);
      }
      printf("%-8s <- %-8s     cache %6.0f%% of memcpy     large %6.0f%% of memcpy\n", D.name,
             S.name, ratio[0] * 100, ratio[1] * 100);
      if (common(D.t, S.t))
        goals.push_back({std::string(D.name) + " <- " + S.name, ratio[1]});
    }

  // The processor-specific variants of the hot pairs, each level's loop on its own.
  typedef KYAUDIOCOPYFUNC(WINAPI * ForLevelFn)(KYSAMPLETYPE, KYSAMPLETYPE, LONG);
  auto forLevel = reinterpret_cast<ForLevelFn>(reinterpret_cast<void *>(
      GetProcAddress(GetModuleHandleA("tellarok.dll"), "KyInternal_AudioConverterForLevel")));
  if (forLevel) {
    printf("\nprocessor variants (this processor's level: %ld)\n", long(KyGetCPUSupport(15)));
    const KYSAMPLETYPE hot[][2] = {{32, 17}, {32, 18}, {17, 32}, {18, 32}};
    for (auto &p : hot) {
      KYAUDIOCOPYFUNC seen[8] = {};
      int nseen = 0;
      for (LONG level = 0; level <= 5; ++level) {
        KYAUDIOCOPYFUNC f = forLevel(p[0], p[1], level);
        bool dup = false;
        for (int i = 0; i < nseen; ++i) dup = dup || seen[i] == f;
        if (dup) continue;
        seen[nseen++] = f;
        const int db = p[0] == 32 ? 4 : p[0] == 17 ? 2 : 3, sb = p[1] == 32 ? 4 : p[1] == 17 ? 2 : 3;
        double ratio[2];
        for (int z = 0; z < 2; ++z) {
          const size_t n = sizes[z].samples;
          ratio[z] = Ratio([&] { f(g_dst.data(), g_src.data(), LONG(n), 1.0f); },
                           double(n) * (db + sb), sizes[z].minTime);
        }
        printf("%ld <- %ld level %ld      cache %6.0f%% of memcpy     large %6.0f%% of memcpy\n",
               long(p[0]), long(p[1]), long(level), ratio[0] * 100, ratio[1] * 100);
      }
    }
  }

  printf("\nmixers (stereo, gains 0.5 / 0.7)\n");
  const double gains[2] = {0.5, 0.7};
  for (const TypeName &D : kTypes)
    for (const TypeName &S : kTypes) {
      WAVEFORMATEX df = {}, sf = {};
      df.wFormatTag = WORD(KyAudio_FormatTagFromSampleType(D.t));
      df.wBitsPerSample = WORD(KyAudio_BitsFromSampleType(D.t));
      sf.wFormatTag = WORD(KyAudio_FormatTagFromSampleType(S.t));
      sf.wBitsPerSample = WORD(KyAudio_BitsFromSampleType(S.t));
      KYAUDIOMIXFUNC m = KyAudio_GetMixFunction(&df, &sf);
      const bool goal = D.t == KYSAMPLE_F32 && S.t == KYSAMPLE_S16;
      if (!m || (quick && !goal)) continue;
      double ratio[2];
      for (int z = 0; z < 2; ++z) {
        const size_t n = sizes[z].samples;
        // The destination is read and written, the source read.
        memset(g_dst.data(), 0, n * D.bytes);
        ratio[z] = Ratio([&] { m(g_dst.data(), g_src.data(), LONG(n), 2, gains); },
                         double(n) * (2 * D.bytes + S.bytes), sizes[z].minTime);
      }
      printf("%-8s += %-8s     cache %6.0f%% of memcpy     large %6.0f%% of memcpy\n", D.name,
             S.name, ratio[0] * 100, ratio[1] * 100);
      if (goal) goals.push_back({std::string(D.name) + " += " + S.name, ratio[1]});
    }

  printf("\ngoal: the common pairs at 70%% of memcpy or better on large buffers\n");
  for (const Goal &g : goals)
    printf("  %-16s %6.0f%%  %s\n", g.what.c_str(), g.large * 100, g.large >= 0.7 ? "met" : "NOT met");
  return 0;
}

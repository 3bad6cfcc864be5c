/* WAVE and AIFF files with cue points / markers and INFO strings, written by libsndfile (an
 * independent writer). Build: cc make_sndfile.c -lsndfile; usage: ./a.out OUTDIR */
#include <sndfile.h>
#include <stdio.h>
#include <string.h>

static int write_file(const char *dir, const char *name, int format, int rate, int frames) {
  char path[1024];
  snprintf(path, sizeof path, "%s/%s", dir, name);
  SF_INFO info;
  memset(&info, 0, sizeof info);
  info.samplerate = rate;
  info.channels = 1;
  info.format = format;
  SNDFILE *f = sf_open(path, SFM_WRITE, &info);
  if (!f) {
    fprintf(stderr, "%s: %s\n", path, sf_strerror(NULL));
    return 1;
  }
  SF_CUES cues;
  memset(&cues, 0, sizeof cues);
  cues.cue_count = 3;
  unsigned offsets[3] = {0, 8000, 12345};
  for (int i = 0; i < 3; ++i) {
    cues.cue_points[i].indx = i + 1;
    cues.cue_points[i].position = offsets[i];
    cues.cue_points[i].fcc_chunk = 0x61746164; /* "data" */
    cues.cue_points[i].sample_offset = offsets[i];
    snprintf(cues.cue_points[i].name, sizeof cues.cue_points[i].name, "cue%d", i + 1);
  }
  sf_command(f, SFC_SET_CUE, &cues, sizeof cues);
  sf_set_string(f, SF_STR_TITLE, "Sndfile title");
  sf_set_string(f, SF_STR_ARTIST, "Sndfile artist");
  sf_set_string(f, SF_STR_COMMENT, "A comment");
  static short buf[20000];
  sf_write_short(f, buf, frames);
  sf_close(f);
  return 0;
}

int main(int argc, char **argv) {
  const char *dir = argc > 1 ? argv[1] : ".";
  int bad = 0;
  bad |= write_file(dir, "sf_cues.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 16000, 16000);
  bad |= write_file(dir, "sf_marks.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16, 16000, 16000);
  return bad;
}

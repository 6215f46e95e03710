// The page every bench server answers with: 300 bytes of HTML, so that peers
// and Varnek send the same body.
#pragma once

#define BENCH_PAGE                                                                       \
  "<!DOCTYPE html><html><head><title>Bench page</title></head><body><h1>Bench page</h1>" \
  "<p>A fixed page of three hundred bytes, the same for every server the bench "         \
  "measures, so that each answer costs the same to send and to read.</p>"                \
  "<p>Nothing in it changes from one request to the next</p></body></html>"

#define BENCH_PAGE_SIZE (sizeof(BENCH_PAGE) - 1)

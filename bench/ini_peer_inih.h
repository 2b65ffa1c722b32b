// inih, reached without its header: it gives `ini_handler` another meaning.
#ifndef STDKRO_BENCH_INI_PEER_INIH_H
#define STDKRO_BENCH_INI_PEER_INIH_H

/// Reads a terminated text and returns the bytes of all names and values it reports.
unsigned long inih_events(const char* text);

#endif

#ifndef EXAMPLES_TOUR_TOUR_H
#define EXAMPLES_TOUR_TOUR_H

// The stations of the tour, in the order in which they are shown. Each prints what it does; all of
// them read the files of examples/data, which is the current directory then.

void id_mapping_station();
void text_station();
void charset_station();
void validators_station();
void time_station();
void file_station();

#endif  // EXAMPLES_TOUR_TOUR_H

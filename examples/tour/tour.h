#ifndef EXAMPLES_TOUR_TOUR_H
#define EXAMPLES_TOUR_TOUR_H

// The stations of the tour, in the order of the tour. Each station uses one family and prints the
// results. The stations read files of examples/data, which must be the current directory.

void id_mapping_station();
void text_station();
void charset_station();
void validators_station();
void time_station();
void file_station();
void registry_station();
void modules_station();  // uses the registry that registry_station has chosen

// What the second process of the registry's station does. Returns a code of the platform.
int change_settings();

#endif  // EXAMPLES_TOUR_TOUR_H

// Scans a buffer file and shows its items in order.
//
// In: the path of a buffer file, and how many files its box has, which share the fixed part of what
// a scan may cost (see scan_limits.hpp). Out: each header, record and damaged place of it once, in
// file order, with the sensors that govern it. Nothing is assumed about the content. The receiver
// may change the record that an item shows, which is made for it alone; everything else is lent.
#ifndef VESK_RECOVERY_BUFFER_SCAN_HPP
#define VESK_RECOVERY_BUFFER_SCAN_HPP

#include <vesk/vesk_scan.h>

#include "box/plain_file.hpp"
#include "recovery/records.hpp"

// Where items go: with the record that was made, null for a header or damage. A result other than 0
// ends the scan.
struct item_receiver {
    int (*take)(const vesk_scan_item &item, const scanned_record *record, void *context);
    void *context;
};

// 0, what the receiver returned if that was not 0, QE_ERROR_OPEN (-40), QE_ERROR_IO (-41) or
// QE_ERROR_NO_MEMORY (-22).
int _vesk_scan_items(const char *filename, link_rule rule, std::size_t files_of_box,
                     const item_receiver &receiver);

#endif

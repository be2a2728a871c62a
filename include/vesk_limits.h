/**
 * @file
 * @brief Facts about boxes that their writers and their readers share: stages and limits.
 */
#ifndef VESK_LIMITS_H
#define VESK_LIMITS_H

/** The stages of a recorder, named after its files, oldest first: c current, h history, 0 none. */
typedef enum vesk_zcf_state {
    VESK_ZCF_STATE_C00 = 1, /**< the first current buffer is being filled */
    VESK_ZCF_STATE_CC0 = 2, /**< the second one is being filled */
    VESK_ZCF_STATE_CCC = 3, /**< the third one is being filled */
    VESK_ZCF_STATE_HCC = 4  /**< a history, a full current buffer, and one that is being filled */
} vesk_zcf_state;

/** Numbers that bound what a box holds. */
typedef enum vesk_limit {
    /** Sensors of one vector, entries of a list and bytes of a name or of the text of an event. */
    VESK_MAX_COUNT = 10000,
    /** Intervals that a full current buffer is summarised into; the history has twice as many. */
    VESK_MAX_INTERVALS = 65534,
    VESK_MIN_EVENT_TYPE = 1, /**< the lowest type of an event */
    VESK_MAX_EVENT_TYPE = 5, /**< the highest type of an event */
    /** Bytes of a base name, without the terminator, with which no name of a file is cut: a
       recorder cuts them to 1023 bytes, and ".4294967295.cbuf.z" takes 18. The part behind the last
       slash has at most 232 where the file system takes 255: ".torn" may follow. */
    VESK_MAX_BASE_LENGTH = 1005
} vesk_limit;

#endif

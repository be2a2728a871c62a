// Writes the state file of a recovered box by the same functions that a recorder uses, and puts it
// in the place of the old one as a whole. A new state file gets the owner of the open buffer, so
// that the owner of the box can still use it after root has recovered it.
#include "recovery/state_writing.hpp"

#include <cstdio>

#include <vesk/error.h>

#include "box/durable_file.hpp"
#include "box/state_file.hpp"

int _vesk_write_state(const box_survey &survey, const arrangement &names,
                      const recorder_sizes &sizes, uint32_t next_file_number)
{
    byte_list bytes;
    byte_list_writer target(&bytes);
    field_writer fields(target.get());
    write_state_head({survey.base(), survey.state_path(), names.stage, sizes.samples,
                      sizes.intervals, sizes.samples / sizes.intervals, next_file_number},
                     &fields);
    fields.byte(1);
    for (uint32_t i = 0; i < names.n; ++i) {
        char path[max_filename];
        _vesk_format_buffer_name(path, survey.base(), names.names[i]);
        fields.string(path);
    }
    if (fields.failed()) {
        return fields.result();
    }
    char like[max_filename];
    _vesk_format_buffer_name(like, survey.base(), names.open());
    replacement_file replacement;
    const int opened = replacement.open(survey.state_path(), like);
    if (opened != 0) {
        return opened;
    }
    return fwrite(bytes.begin(), 1, bytes.size(), replacement.file()) == bytes.size()
               ? replacement.commit()
               : QE_ERROR_IO;
}

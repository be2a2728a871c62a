// Finds out whether any file of a box exists, before a new box is made under its name. The caller
// may make a box only if the answer is certain.
#ifndef VESK_BOX_BOX_PRESENCE_HPP
#define VESK_BOX_BOX_PRESENCE_HPP

// 1 when there is a state file, its copy or a buffer on `base`, whatever is in them; 0 when it is
// certain that there is none; QE_ERROR_OPEN (-40) or QE_ERROR_IO (-41) when that cannot be told,
// QE_ERROR_LIMIT (-49) when the name is too long, QE_ERROR_NO_MEMORY (-22) without memory. Only an
// answer of 0 allows to make a box.
int _vesk_find_box(const char *base);

#endif

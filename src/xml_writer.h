// Printing trees.
#ifndef STDKRO_SRC_XML_WRITER_H
#define STDKRO_SRC_XML_WRITER_H

class xml_node;

/// Replaces a file by the printed node: 0 or 0x80020002.
int write_xml_file(const char* path, const xml_node& node, bool pretty);

#endif

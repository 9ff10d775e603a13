package COM.kelva.KAPI;

/**
 * One attribute of a domain or a node: a key (a C identifier) and its value.
 *
 * @param key the attribute's key
 * @param value the attribute's value
 */
public record Attribute(String key, String value) {}

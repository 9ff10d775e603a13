// Replaced by the native layer.

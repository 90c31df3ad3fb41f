/* The page's version. An installed page has its own in this file. */
var page_version = 'unknown';

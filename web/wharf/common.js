// What the upload's result page shares with the other pages. It holds nothing: the page only shows
// msgUploadError of messages.js. The file is here because that page asks for it.

<!DOCTYPE html>
<html>
<head><title>Small page</title></head>
<body>
<h1>Hello, <?= $_GET['name'] ?></h1>
<p>Your colour is <?= $_GET['colour'] ?> and you asked for <?= $_GET['count'] ?> items.</p>
<p>Thank you for visiting.</p>
</body>
</html>
<!-- small: <?= $_GET['name'] ?> <?= $_GET['colour'] ?> <?= $_GET['count'] ?> -->
